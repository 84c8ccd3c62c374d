#include "partition/disk_range.h"

#include <utility>

#include "support/machine_test.h"

namespace kk {
namespace {

constexpr uint64_t kMiB = 1 << 20;

struct AlignedCase {
    uint64_t start;
    uint64_t end;
    uint64_t alignedStart;
    uint64_t length;
};

TEST(DiskRangeTest, BeginsAtAMebibyteButNotAtTheFirst)
{
    const AlignedCase cases[] = {
        {0, 8 * kMiB, kMiB, 7 * kMiB},
        {1, 8 * kMiB, kMiB, 7 * kMiB},
        {kMiB, 8 * kMiB, kMiB, 7 * kMiB},
        {kMiB + 1, 8 * kMiB, 2 * kMiB, 6 * kMiB},
        {2 * kMiB - 1, 8 * kMiB + 3, 2 * kMiB, 6 * kMiB + 3},
        {3 * kMiB, 3 * kMiB + 1, 3 * kMiB, 1},
    };
    for (const AlignedCase& each : cases) {
        const DiskRange range = AlignedRange(each.start, each.end);
        EXPECT_EQ(range.start, each.alignedStart) << each.start;
        EXPECT_EQ(range.length, each.length) << each.start;
    }
}

TEST(DiskRangeTest, IsEmptyWhereNothingIsLeft)
{
    const std::pair<uint64_t, uint64_t> cases[] = {{0, 0},
                                                   {0, kMiB},
                                                   {kMiB, kMiB},
                                                   {kMiB + 1, 2 * kMiB},
                                                   {8 * kMiB, kMiB},
                                                   {UINT64_MAX, UINT64_MAX},
                                                   {UINT64_MAX - kMiB + 2, UINT64_MAX}};
    for (const auto& [start, end] : cases) {
        EXPECT_EQ(AlignedRange(start, end).length, 0u) << start << " to " << end;
    }
}

TEST(DiskRangeTest, AStartBeyondTheLastMebibyteIsBeyondAllDisks)
{
    EXPECT_EQ(AlignedRange(UINT64_MAX - kMiB + 2, UINT64_MAX).start, UINT64_MAX);
    EXPECT_EQ(AlignedRange(UINT64_MAX - kMiB + 1, UINT64_MAX).start, UINT64_MAX - kMiB + 1);
}

class OverlapTest : public MachineTest {
protected:
    void Add(uint64_t start, uint64_t length)
    {
        PartitionEntry partition = {};
        partition.start = start;
        partition.length = length;
        ASSERT_TRUE(layout.partitions.Append(partition));
    }

    DiskLayout layout;
};

TEST_F(OverlapTest, NothingIsInTheWayOnAnEmptyDisk)
{
    EXPECT_FALSE(OverlapsPartition(layout, {0, UINT64_MAX}));
}

TEST_F(OverlapTest, OneByteIsEnough)
{
    Add(1000, 100);

    EXPECT_FALSE(OverlapsPartition(layout, {900, 100}));
    EXPECT_TRUE(OverlapsPartition(layout, {900, 101}));
    EXPECT_TRUE(OverlapsPartition(layout, {1099, 1}));
    EXPECT_FALSE(OverlapsPartition(layout, {1100, 1}));
    EXPECT_TRUE(OverlapsPartition(layout, {1050, 10})) << "inside";
    EXPECT_TRUE(OverlapsPartition(layout, {0, 5000})) << "around";
    EXPECT_TRUE(OverlapsPartition(layout, {1000, 100})) << "the same";
}

TEST_F(OverlapTest, EveryPartitionCounts)
{
    Add(1000, 100);
    Add(3000, 100);
    Add(2000, 100);

    EXPECT_TRUE(OverlapsPartition(layout, {1010, 1}));
    EXPECT_TRUE(OverlapsPartition(layout, {3010, 1}));
    EXPECT_TRUE(OverlapsPartition(layout, {2010, 1}));
    EXPECT_FALSE(OverlapsPartition(layout, {2100, 900}));
}

TEST_F(OverlapTest, APartitionThatReachesBeyondAllNumbersIsInTheWay)
{
    Add(1000, UINT64_MAX - 500);

    EXPECT_TRUE(OverlapsPartition(layout, {2000, 1}));
    EXPECT_FALSE(OverlapsPartition(layout, {500, 500}));
}

TEST_F(OverlapTest, ARangeWithoutLengthIsInNobodysWayButInsideOne)
{
    Add(1000, 100);

    EXPECT_FALSE(OverlapsPartition(layout, {1000, 0}));
    EXPECT_TRUE(OverlapsPartition(layout, {1001, 0}));
    EXPECT_FALSE(OverlapsPartition(layout, {1100, 0}));
}

}  // namespace
}  // namespace kk
