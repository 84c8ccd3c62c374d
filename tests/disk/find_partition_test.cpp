#include <string>

#include "disk/read_disk_layout.h"

namespace kk {
namespace {

class FindPartitionTest : public ReadDiskLayoutTest {
protected:
    /// The number of the partition that is found at `start`, or 0.
    uint32_t NumberAt(uint64_t start) const
    {
        const PartitionEntry* const partition = FindPartition(layout_, start);
        return partition != nullptr ? partition->number : 0;
    }
};

TEST_F(FindPartitionTest, IsTheOneThatStartsThere)
{
    AddDisk().Gpt({.partitions = {{.start = 1 * kMiB, .length = 8 * kMiB},
                                  {.start = 10 * kMiB, .length = 8 * kMiB},
                                  {.start = 20 * kMiB, .length = 8 * kMiB}}});
    ASSERT_EQ(Read(), KK_STATUS_SUCCESS);

    EXPECT_EQ(FindPartition(layout_, 1 * kMiB), &layout_.partitions[0]);
    EXPECT_EQ(FindPartition(layout_, 10 * kMiB), &layout_.partitions[1]);
    EXPECT_EQ(FindPartition(layout_, 20 * kMiB), &layout_.partitions[2]);
}

TEST_F(FindPartitionTest, TheStartMustBeExact)
{
    AddDisk().Gpt({.partitions = {{.start = 1 * kMiB, .length = 8 * kMiB}}});
    ASSERT_EQ(Read(), KK_STATUS_SUCCESS);

    EXPECT_EQ(NumberAt(1 * kMiB), 1u);
    for (const uint64_t start : {1 * kMiB - 1, 1 * kMiB + 1, 9 * kMiB, uint64_t{0}, (uint64_t{1} << 32) + 1 * kMiB}) {
        EXPECT_EQ(FindPartition(layout_, start), nullptr) << start;
    }
}

TEST_F(FindPartitionTest, OfSeveralTheFirstIsMeant)
{
    AddDisk();
    AnswerLayout(
        LayoutAnswer(WirePartitionStyle::Mbr).AddMbr(3, 8192, 7).AddMbr(2, 4096, 7).AddMbr(1, 4096, 7).Bytes());
    ASSERT_EQ(Read(), KK_STATUS_SUCCESS);

    EXPECT_EQ(NumberAt(4096), 2u);
}

TEST_F(FindPartitionTest, ContainersAreNoPartitionsAndLogicalDrivesAre)
{
    AddDisk().Mbr({.partitions = {{.start = 1 * kMiB, .length = 4 * kMiB}},
                   .logicals = {{.start = 10 * kMiB, .length = 4 * kMiB}}});
    ASSERT_EQ(Read(), KK_STATUS_SUCCESS);

    EXPECT_NE(FindPartition(layout_, 10 * kMiB), nullptr);
    EXPECT_EQ(FindPartition(layout_, 9 * kMiB), nullptr);
}

TEST_F(FindPartitionTest, StartsBeyondTheSignedRangeAreFound)
{
    AddDisk();
    LayoutAnswer answer(WirePartitionStyle::Gpt);
    AnswerLayout(answer.AddGpt(1, -4096).Bytes());
    ASSERT_EQ(Read(), KK_STATUS_SUCCESS);

    EXPECT_EQ(NumberAt(UINT64_MAX - 4095), 1u);
}

TEST_F(FindPartitionTest, AnEmptyLayoutHasNone)
{
    EXPECT_EQ(FindPartition(layout_, 0), nullptr);
}

}  // namespace
}  // namespace kk
