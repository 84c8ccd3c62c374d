#include "core/memory.h"

#include <array>

#include "core/heap_block.h"
#include "core/nt.h"
#include "support/hook.h"
#include "support/machine_test.h"

namespace kk {
namespace {

const machine::CallPattern kAllocations = {.kind = machine::CallKind::Allocate};
const machine::CallPattern kReleases = {.kind = machine::CallKind::Free};

class MemoryTest : public MachineTest {};

TEST_F(MemoryTest, ARequestForNothingGetsOneByte)
{
    auto* const block = static_cast<uint8_t*>(MemAlloc(0));

    ASSERT_NE(block, nullptr);
    EXPECT_EQ(machine.heap.SizeOf(block), 1u);
    *block = 7;
    MemFree(block);
}

TEST_F(MemoryTest, ARequestGetsExactlyItsSize)
{
    void* const one = MemAlloc(1);
    void* const many = MemAlloc(4711);

    EXPECT_EQ(machine.heap.SizeOf(one), 1u);
    EXPECT_EQ(machine.heap.SizeOf(many), 4711u);
    MemFree(many);
    MemFree(one);
}

TEST_F(MemoryTest, BlocksAreNotZeroed)
{
    auto* const block = static_cast<uint8_t*>(MemAlloc(3));

    ASSERT_NE(block, nullptr);
    EXPECT_NE(block[0], 0);
    EXPECT_NE(block[2], 0);
    MemFree(block);
}

TEST_F(MemoryTest, SizesBeyond32BitsAreNotCut)
{
    EXPECT_EQ(MemAlloc(uint64_t{1} << 32), nullptr);
    EXPECT_EQ(MemAlloc(UINT64_MAX), nullptr);
    EXPECT_EQ(machine.journal.Records().front().length, uint64_t{1} << 32);
}

TEST_F(MemoryTest, AnExhaustedHeapGivesNull)
{
    machine.faults.Fail(kAllocations, 1, 0);

    EXPECT_EQ(MemAlloc(16), nullptr);
}

TEST_F(MemoryTest, AFreedBlockGoesBackToTheHeap)
{
    void* const block = MemAlloc(16);
    ASSERT_EQ(machine.heap.LiveBlocks(), 1u);

    MemFree(block);
    EXPECT_EQ(machine.heap.LiveBlocks(), 0u);
}

TEST_F(MemoryTest, FreeingNullMakesNoCall)
{
    MemFree(nullptr);

    EXPECT_EQ(machine.journal.Count(kReleases), 0u);
}

/// The process environment block of this thread's process.
ProcessEnvironmentBlock& ProcessBlock()
{
    ProcessEnvironmentBlock* block = nullptr;
    asm("movq %%gs:%c1, %0" : "=r"(block) : "i"(kThreadBlockPebOffset));
    return *block;
}

TEST_F(MemoryTest, TheHeapIsLookedUpAtEachCallAndUsedWithoutFlags)
{
    std::vector<std::pair<void*, uint32_t>> calls;
    const Hook<&RtlAllocateHeap> allocate([&](void* heap, uint32_t flags, uint64_t size) {
        calls.emplace_back(heap, flags);
        return Hook<&RtlAllocateHeap>::Original(heap, flags, size);
    });
    const Hook<&RtlFreeHeap> release([&](void* heap, uint32_t flags, void* /*block*/) -> uint8_t {
        calls.emplace_back(heap, flags);
        return 1;
    });
    void* const heap = ProcessBlock().processHeap;
    std::array<char, 1> otherHeap;

    void* const block = MemAlloc(8);
    ProcessBlock().processHeap = otherHeap.data();
    MemFree(block);
    ProcessBlock().processHeap = heap;
    (void)Hook<&RtlFreeHeap>::Original(heap, 0, block);
    EXPECT_EQ(calls, (std::vector<std::pair<void*, uint32_t>>{{heap, 0}, {otherHeap.data(), 0}}));
}

TEST_F(MemoryTest, CopiesAndFillsExactlyTheCount)
{
    std::array<uint8_t, 6> bytes = {1, 2, 3, 4, 5, 6};

    CopyBytes(bytes.data(), bytes.data() + 4, 2);
    FillBytes(bytes.data() + 2, 9, 2);
    ZeroBytes(bytes.data() + 5, 1);
    EXPECT_EQ(bytes, (std::array<uint8_t, 6>{5, 6, 9, 9, 5, 0}));
}

TEST_F(MemoryTest, BytesAreTheSameWhenEachOfTheCountIs)
{
    const std::array<uint8_t, 6> bytes = {1, 0, 0xFF, 4, 5, 6};
    for (size_t i = 0; i < bytes.size(); ++i) {
        std::array<uint8_t, 6> other = bytes;
        EXPECT_TRUE(SameBytes(other.data(), bytes.data(), 6));
        other[i] ^= 0x80;

        EXPECT_FALSE(SameBytes(other.data(), bytes.data(), 6)) << i;
        EXPECT_FALSE(SameBytes(bytes.data(), other.data(), i + 1)) << i;
        EXPECT_TRUE(SameBytes(other.data(), bytes.data(), i)) << i;
    }
}

TEST_F(MemoryTest, NoBytesAreTheSame)
{
    EXPECT_TRUE(SameBytes("a", "b", 0));
}

using HeapBlockTest = MemoryTest;

TEST_F(HeapBlockTest, IsZeroed)
{
    HeapBlock block;

    ASSERT_TRUE(block.Allocate(1000));
    EXPECT_EQ(machine.heap.SizeOf(block.Data()), 1000u);
    EXPECT_EQ(std::vector<uint8_t>(block.Data(), block.Data() + 1000), std::vector<uint8_t>(1000));
}

TEST_F(HeapBlockTest, OfNoBytesIsThere)
{
    HeapBlock block;

    EXPECT_TRUE(block.Allocate(0));
    EXPECT_NE(block.Data(), nullptr);
}

TEST_F(HeapBlockTest, SaysWhenMemoryRanOut)
{
    machine.faults.Fail(kAllocations, 1, 0);
    HeapBlock block;

    EXPECT_FALSE(block.Allocate(16));
    EXPECT_EQ(block.Data(), nullptr);
}

TEST_F(HeapBlockTest, GivesItsMemoryBackOnce)
{
    {
        HeapBlock block;
        ASSERT_TRUE(block.Allocate(16));
        const HeapBlock unused;
    }

    EXPECT_EQ(machine.heap.LiveBlocks(), 0u);
    EXPECT_EQ(machine.journal.Count(kReleases), 1u);
}

}  // namespace
}  // namespace kk
