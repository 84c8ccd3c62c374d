#include "core/byte_buffer.h"

#include "support/machine_test.h"

namespace kk {
namespace {

class ByteBufferTest : public MachineTest {
protected:
    std::vector<uint8_t> Content() const { return {buffer_.Data(), buffer_.Data() + buffer_.Length()}; }

    ByteBuffer buffer_;
};

TEST_F(ByteBufferTest, BeginsEmptyWithoutMemory)
{
    EXPECT_EQ(buffer_.Length(), 0u);
    EXPECT_EQ(buffer_.Capacity(), 0u);
    EXPECT_TRUE(buffer_.Reserve(0));
    EXPECT_TRUE(buffer_.Resize(0));
    EXPECT_EQ(machine.heap.TotalAllocations(), 0u);
}

TEST_F(ByteBufferTest, GrowsToEightAndDoubles)
{
    for (uint8_t i = 0; i < 33; ++i) {
        ASSERT_TRUE(buffer_.Append(i));
    }

    EXPECT_EQ(machine.heap.Sizes(), (std::vector<uint64_t>{8, 16, 32, 64}));
    EXPECT_EQ(buffer_.Capacity(), 64u);
    EXPECT_EQ(buffer_.Length(), 33u);
}

TEST_F(ByteBufferTest, GrowsToWhatIsNeededWhenThatIsMore)
{
    EXPECT_TRUE(buffer_.Reserve(100));
    EXPECT_EQ(buffer_.Capacity(), 100u);
    EXPECT_TRUE(buffer_.Reserve(101));
    EXPECT_EQ(buffer_.Capacity(), 200u);
    EXPECT_TRUE(buffer_.Reserve(401));
    EXPECT_EQ(buffer_.Capacity(), 401u);
}

TEST_F(ByteBufferTest, NeverShrinksItsRoom)
{
    ASSERT_TRUE(buffer_.Resize(100));

    EXPECT_TRUE(buffer_.Resize(1));
    EXPECT_TRUE(buffer_.Reserve(2));
    EXPECT_EQ(buffer_.Length(), 1u);
    EXPECT_EQ(buffer_.Capacity(), 100u);
    EXPECT_EQ(machine.heap.TotalAllocations(), 1u);
}

TEST_F(ByteBufferTest, KeepsItsContentWhileItGrows)
{
    ASSERT_TRUE(buffer_.Append(1));
    ASSERT_TRUE(buffer_.Append(2));

    EXPECT_TRUE(buffer_.Reserve(1000));
    EXPECT_EQ(Content(), (std::vector<uint8_t>{1, 2}));
    EXPECT_EQ(machine.heap.LiveBlocks(), 1u);
}

TEST_F(ByteBufferTest, NewBytesAreZero)
{
    ASSERT_TRUE(buffer_.Append(7));

    EXPECT_TRUE(buffer_.Resize(20));
    std::vector<uint8_t> expected(20);
    expected[0] = 7;
    EXPECT_EQ(Content(), expected);
}

TEST_F(ByteBufferTest, BytesThatComeBackAreZero)
{
    ASSERT_TRUE(buffer_.Resize(4));
    std::fill_n(buffer_.Data(), 4, uint8_t{9});

    EXPECT_TRUE(buffer_.Resize(1));
    EXPECT_TRUE(buffer_.Resize(4));
    EXPECT_EQ(Content(), (std::vector<uint8_t>{9, 0, 0, 0}));
}

TEST_F(ByteBufferTest, IsAsBeforeWhenGrowingFails)
{
    for (uint8_t i = 0; i < 8; ++i) {
        ASSERT_TRUE(buffer_.Append(i));
    }
    machine.faults.FailFrom({.kind = machine::CallKind::Allocate}, 1, 0);

    EXPECT_FALSE(buffer_.Append(8));
    EXPECT_FALSE(buffer_.Resize(9));
    EXPECT_FALSE(buffer_.Reserve(9));
    EXPECT_EQ(buffer_.Capacity(), 8u);
    EXPECT_EQ(Content(), (std::vector<uint8_t>{0, 1, 2, 3, 4, 5, 6, 7}));
}

TEST_F(ByteBufferTest, SizesBeyondTheHeapAreRefused)
{
    ASSERT_TRUE(buffer_.Append(1));

    EXPECT_FALSE(buffer_.Resize(uint64_t{1} << 32));
    EXPECT_FALSE(buffer_.Reserve(UINT64_MAX));
    EXPECT_EQ(Content(), (std::vector<uint8_t>{1}));
}

}  // namespace
}  // namespace kk
