#include "core/array.h"

#include <numeric>

#include "support/machine_test.h"

namespace kk {
namespace {

class ArrayTest : public MachineTest {
protected:
    void AppendUpTo(uint64_t count)
    {
        for (uint64_t item = items_.Count(); item < count; ++item) {
            ASSERT_TRUE(items_.Append(item));
        }
    }

    Array<uint64_t> items_;
};

TEST_F(ArrayTest, BeginsEmptyWithoutMemory)
{
    EXPECT_EQ(items_.Count(), 0u);
    EXPECT_EQ(items_.begin(), items_.end());
    EXPECT_EQ(machine.heap.TotalAllocations(), 0u);
}

TEST_F(ArrayTest, HasRoomForEightAtFirstAndDoubles)
{
    AppendUpTo(8);
    EXPECT_EQ(machine.heap.Sizes(), (std::vector<uint64_t>{8 * sizeof(uint64_t)}));

    AppendUpTo(33);
    EXPECT_EQ(machine.heap.Sizes(), (std::vector<uint64_t>{64, 128, 256, 512}));
    EXPECT_EQ(machine.heap.LiveBlocks(), 1u);
}

TEST_F(ArrayTest, KeepsItsItemsInOrderWhileItGrows)
{
    AppendUpTo(100);

    ASSERT_EQ(items_.Count(), 100u);
    for (uint64_t i = 0; i < 100; ++i) {
        EXPECT_EQ(items_[i], i);
    }
    EXPECT_EQ(std::accumulate(items_.begin(), items_.end(), uint64_t{0}), 4950u);
}

TEST_F(ArrayTest, IsAsBeforeWhenTheFirstGrowthFails)
{
    machine.faults.Fail({.kind = machine::CallKind::Allocate}, 1, 0);

    EXPECT_FALSE(items_.Append(1));
    EXPECT_EQ(items_.Count(), 0u);
    EXPECT_TRUE(items_.Append(2));
    EXPECT_EQ(items_[0], 2u);
}

TEST_F(ArrayTest, IsAsBeforeWhenALaterGrowthFails)
{
    AppendUpTo(8);
    machine.faults.Fail({.kind = machine::CallKind::Allocate}, 1, 0);

    EXPECT_FALSE(items_.Append(99));
    ASSERT_EQ(items_.Count(), 8u);
    EXPECT_EQ(items_[0], 0u);
    EXPECT_EQ(items_[7], 7u);
    EXPECT_TRUE(items_.Append(8));
    EXPECT_EQ(items_[8], 8u);
}

}  // namespace
}  // namespace kk
