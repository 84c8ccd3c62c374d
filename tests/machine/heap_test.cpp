#include "machine/heap.h"

#include "tests/machine/native_calls.h"

namespace machine {
namespace {

class HeapTest : public MachineTest {
protected:
    void* Take(uint64_t size, uint32_t flags = 0) { return RtlAllocateHeap(&machine.heap, flags, size); }
    bool Give(void* block) { return RtlFreeHeap(&machine.heap, 0, block) != 0; }
};

/// Past what the compiler may know about the block, as code that no sanitizer sees would write.
#if defined(__clang__)
__attribute__((no_sanitize("address", "undefined")))
#endif
void WriteBlindly(void* block, ptrdiff_t offset)
{
    static_cast<volatile uint8_t*>(block)[offset] = 0;
}

TEST_F(HeapTest, TheHandleIsTheOneInTheProcessEnvironmentBlock)
{
    const kk::ProcessEnvironmentBlock* peb = nullptr;
    asm("movq %%gs:0x60, %0" : "=r"(peb));

    EXPECT_EQ(peb->processHeap, &machine.heap);
}

TEST_F(HeapTest, BlocksAreAlignedAndFullOfRubbishUnlessZeroesAreAskedFor)
{
    auto* const block = static_cast<uint8_t*>(Take(33));
    auto* const zeroed = static_cast<uint8_t*>(Take(33, 8));

    EXPECT_EQ(reinterpret_cast<uintptr_t>(block) % 16, 0u);
    EXPECT_TRUE(std::all_of(block, block + 33, [](uint8_t byte) { return byte == 0xCD; }));
    EXPECT_TRUE(std::all_of(zeroed, zeroed + 33, [](uint8_t byte) { return byte == 0; }));
    EXPECT_TRUE(Give(block));
    EXPECT_TRUE(Give(zeroed));
}

TEST_F(HeapTest, KeepsCount)
{
    void* const first = Take(100);
    void* const second = Take(0);
    EXPECT_NE(second, nullptr);
    Give(first);

    EXPECT_EQ(machine.heap.LiveBlocks(), 1u);
    EXPECT_EQ(machine.heap.LiveBytes(), 0u);
    EXPECT_EQ(machine.heap.PeakBytes(), 100u);
    EXPECT_EQ(machine.heap.TotalAllocations(), 2u);
    EXPECT_EQ(machine.heap.Sizes(), (std::vector<uint64_t>{100, 0}));
    EXPECT_EQ(machine.Imbalances(), std::vector<std::string>{"heap block 2 of 0 bytes was not freed"});
    Give(second);
}

TEST_F(HeapTest, RequestsBeyondTheLimitGetNothing)
{
    machine.heap.SetLimit(1000);
    void* const block = Take(900);

    EXPECT_EQ(Take(101), nullptr);
    EXPECT_EQ(Take(UINT64_MAX), nullptr);
    Give(block);
}

TEST_F(HeapTest, WritingBesideABlockIsNoticed)
{
    void* const block = Take(20);
    WriteBlindly(block, 20);
    Give(block);
    EXPECT_EQ(TakeBreaches().size(), 1u);

    void* const other = Take(20);
    WriteBlindly(other, -1);
    Give(other);
    EXPECT_EQ(TakeBreaches().size(), 1u);
}

TEST_F(HeapTest, FreeingTwiceOrWhatIsForeignIsNoticed)
{
    int local = 0;
    void* const block = Take(20);
    Give(block);

    EXPECT_FALSE(Give(block));
    EXPECT_FALSE(Give(&local));
    EXPECT_FALSE(RtlFreeHeap(&local, 0, block));
    EXPECT_EQ(TakeBreaches().size(), 3u);
    EXPECT_TRUE(Give(nullptr));
}

TEST(MachineLifeTest, WhatWasNotGivenBackIsReportedAtTheEnd)
{
    std::vector<std::string> breaches;
    {
        Machine machine;
        machine.SetFailureHandler([&](const std::string& breach) { breaches.push_back(breach); });
        machine.AddBalanceCheck([] { return std::vector<std::string>{"an object lives"}; });
        (void)RtlAllocateHeap(&machine.heap, 0, 7);
    }

    EXPECT_EQ(breaches, (std::vector<std::string>{"heap block 1 of 7 bytes was not freed", "an object lives"}));
}

}  // namespace
}  // namespace machine
