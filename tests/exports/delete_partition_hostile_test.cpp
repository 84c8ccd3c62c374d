#include "exports/support/partition_edit_test.h"

// Layouts and geometries that do not fit the table on the disk: no other partition goes in place of the named one.

namespace {

class DeletePartitionHostileTest : public PartitionEditTest {
protected:
    void PretendPartition(uint64_t start, kk::WirePartitionStyle style = kk::WirePartitionStyle::Mbr)
    {
        LayoutAnswer layout(style);
        layout.Add(1, static_cast<int64_t>(start), kMiB).mbr.partitionType = 7;
        PretendLayout(layout);
    }
    void ExpectRefused(int32_t status, uint64_t start)
    {
        EXPECT_EQ(Delete(start), status) << start;
        EXPECT_TRUE(written.empty());
    }
};

TEST_F(DeletePartitionHostileTest, AStartThatAnMbrWouldCutDoesNotMatchWhatItWouldBeCutTo)
{
    SHOWS(KkDeletePartition, KK_STATUS_INVALID_PARAMETER,
          "a start above 2 TiB does not match the entry that its low 32 bits would name");

    AddDisk(kSmallMbr, {{kMiB, kMiB}});
    const uint64_t start = (uint64_t{1} << 41) + kMiB;
    PretendPartition(start);

    ExpectRefused(KK_STATUS_INVALID_PARAMETER, start);
}

TEST_F(DeletePartitionHostileTest, AStartInsideASectorMeansThatSector)
{
    SHOWS(KkDeletePartition, KK_STATUS_SUCCESS, "a start inside a sector means that sector");

    AddDisk(kSmallMbr, {{kMiB, kMiB}});
    PretendPartition(kMiB + 511);

    EXPECT_EQ(Delete(kMiB + 511), 0);

    EXPECT_TRUE(ReadSlots(TheDisk(), kSmallMbr).empty());
}

TEST_F(DeletePartitionHostileTest, StartsThatNoTableHolds)
{
    SHOWS(KkDeletePartition, KK_STATUS_INVALID_PARAMETER, "starts that no table can hold");

    for (const DiskKind& kind : {kSmallGpt, kSmallMbr}) {
        AddDisk(kind, {{kMiB, kMiB}});
        for (const uint64_t start : {uint64_t{0}, uint64_t{1} << 63, (uint64_t{1} << 63) - 1, UINT64_MAX}) {
            PretendPartition(start,
                             kind.table == TableKind::Gpt ? kk::WirePartitionStyle::Gpt : kk::WirePartitionStyle::Mbr);
            ExpectRefused(KK_STATUS_INVALID_PARAMETER, start);
        }
    }
}

TEST_F(DeletePartitionHostileTest, AStyleThatTheTableDoesNotHave)
{
    SHOWS(KkDeletePartition, KK_STATUS_REGISTRY_CORRUPT, "the system tells of a GPT on an MBR disk");
    SHOWS(KkDeletePartition, KK_STATUS_INVALID_PARAMETER,
          "the system tells of an MBR on a GPT disk, whose protective MBR does not list the partition");

    AddDisk(kSmallMbr, {{kMiB, kMiB}});
    PretendPartition(kMiB, kk::WirePartitionStyle::Gpt);
    ExpectRefused(KK_STATUS_REGISTRY_CORRUPT, kMiB);

    AddDisk(kSmallGpt, {{kMiB, kMiB}});
    PretendPartition(kMiB, kk::WirePartitionStyle::Mbr);
    ExpectRefused(KK_STATUS_INVALID_PARAMETER, kMiB);
}

TEST_F(DeletePartitionHostileTest, ASectorSizeOfZeroMeans512)
{
    SHOWS(KkDeletePartition, KK_STATUS_SUCCESS, "a reported sector size of 0 means 512");

    for (const DiskKind& kind : {kSmallGpt, kSmallMbr}) {
        AddDisk(kind, {{kMiB, kMiB}}).behaviour.reportsZeroBytesPerSector = true;

        EXPECT_EQ(Delete(kMiB), 0) << kind;

        EXPECT_TRUE(ReadSlots(TheDisk(), kind).empty());
    }
}

TEST_F(DeletePartitionHostileTest, AWrongSectorSizeNeverReachesTheTable)
{
    SHOWS(KkDeletePartition, "with a wrong sector size it fails and nothing is written");

    for (const DiskKind& kind : {kSmallGpt, kSmallMbr}) {
        for (const uint32_t sectorSize : {1u, 7u, 91u, 511u, 1024u, 4096u}) {
            AddDisk(kind, {{kMiB, kMiB}});
            PretendGeometry(kDiskSize, sectorSize);

            EXPECT_LT(Delete(kMiB), 0) << kind << ", " << sectorSize;

            EXPECT_TRUE(written.empty());
        }
    }
}

TEST_F(DeletePartitionHostileTest, ASectorForWhichThereIsNoMemory)
{
    SHOWS(KkDeletePartition, KK_STATUS_NO_MEMORY, "no memory for a sector of nearly 4 GiB");

    machine.heap.SetLimit(kMiB);
    for (const DiskKind& kind : {kSmallGpt, kSmallMbr}) {
        AddDisk(kind, {{kMiB, kMiB}});
        PretendGeometry(kDiskSize, UINT32_MAX);
        ExpectRefused(KK_STATUS_NO_MEMORY, kMiB);
    }
}

}  // namespace
