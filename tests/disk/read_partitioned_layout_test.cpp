#include <string>

#include "disk/read_disk_layout.h"

namespace kk {
namespace {

using ReadPartitionedLayoutTest = ReadDiskLayoutTest;

TEST_F(ReadPartitionedLayoutTest, ReadsWhatReadDiskLayoutReads)
{
    machine.AddDisk(64 * kMiB, {.sectorSize = 4096}).Gpt({.partitions = {{.start = 1 * kMiB, .length = 8 * kMiB}}});

    EXPECT_EQ(ReadPartitionedLayout(0, layout_), KK_STATUS_SUCCESS);
    EXPECT_EQ(layout_.sectorSize, 4096u);
    EXPECT_EQ(layout_.diskSize, 64 * kMiB);
    EXPECT_EQ(layout_.style, PartitionStyle::Gpt);
    EXPECT_EQ(layout_.diskGuid, machine::kSampleDiskId);
    EXPECT_EQ(Starts(), std::vector<uint64_t>{1 * kMiB});
}

TEST_F(ReadPartitionedLayoutTest, AnMbrIsATableToo)
{
    AddDisk().Mbr({.partitions = {{.start = 1 * kMiB, .length = 8 * kMiB}}});

    EXPECT_EQ(ReadPartitionedLayout(0, layout_), KK_STATUS_SUCCESS);
    EXPECT_EQ(layout_.style, PartitionStyle::Mbr);
}

TEST_F(ReadPartitionedLayoutTest, ATableWithoutPartitionsIsATable)
{
    AddDisk().Gpt({});

    EXPECT_EQ(ReadPartitionedLayout(0, layout_), KK_STATUS_SUCCESS);
    EXPECT_EQ(layout_.partitions.Count(), 0u);
}

TEST_F(ReadPartitionedLayoutTest, ADiskWithoutATableIsNotSupported)
{
    AddDisk();

    EXPECT_EQ(ReadPartitionedLayout(0, layout_), Status(0xC00000BB));
    EXPECT_EQ(layout_.diskSize, 64 * kMiB);
}

TEST_F(ReadPartitionedLayoutTest, AStyleThatNobodyKnowsIsNotSupported)
{
    AddDisk();
    AnswerLayout(LayoutAnswer(WirePartitionStyle(3)).Bytes());

    EXPECT_EQ(ReadPartitionedLayout(0, layout_), Status(0xC00000BB));
}

TEST_F(ReadPartitionedLayoutTest, AnAnswerWithoutAHeadIsNotSupported)
{
    AddDisk();
    AnswerLayout({});

    EXPECT_EQ(ReadPartitionedLayout(0, layout_), Status(0xC00000BB));
}

TEST_F(ReadPartitionedLayoutTest, FailuresOfReadingArePassedOn)
{
    EXPECT_EQ(ReadPartitionedLayout(0, layout_), Status(0xC0000034));

    AddDisk().Gpt({});
    machine.faults.FailFrom({.code = 0x70050}, 1, 0xC0000185);
    EXPECT_EQ(ReadPartitionedLayout(0, layout_), Status(0xC0000185));
    machine.faults.Clear();
    machine.faults.Fail({.kind = machine::CallKind::Allocate}, 2, 0);
    EXPECT_EQ(ReadPartitionedLayout(0, layout_), Status(0xC0000017));
}

}  // namespace
}  // namespace kk
