#include "exports/support/partition_edit_test.h"

// Creations that fail, and what they leave alone.

namespace {

class CreatePartitionRefusalTest : public PartitionEditTest {
protected:
    void ExpectRefused(int32_t status, const Place& region, uint64_t size = 0)
    {
        EXPECT_EQ(Create(region.start, region.length, size), status) << region << ", size " << size;
        EXPECT_EQ(created, kNotWritten);
        EXPECT_EQ(machine.journal.Count({.code = 0x70140}), 0u);
        EXPECT_TRUE(written.empty());
    }
};

TEST_F(CreatePartitionRefusalTest, ADiskThatIsNotThere)
{
    SHOWS(KkCreatePartition, 0xC0000034,
          "the status of a disk that does not open is passed on; the start is untouched");

    EXPECT_EQ(Create(0, kDiskSize), Status(0xC0000034));
    EXPECT_EQ(created, kNotWritten);
    EXPECT_EQ(api.createPartition(UINT32_MAX, 0, kDiskSize, 0, &created), Status(0xC0000034));
}

TEST_F(CreatePartitionRefusalTest, ALayoutThatCannotBeRead)
{
    SHOWS(KkCreatePartition, 0xC000009C, "the status of a layout that cannot be read is passed on");

    AddDisk(kSmallGpt, {});
    Refuse(0x70050, 0xC000009C);

    ExpectRefused(Status(0xC000009C), {0, kDiskSize});
}

TEST_F(CreatePartitionRefusalTest, ADiskWithoutATable)
{
    SHOWS(KkCreatePartition, KK_STATUS_NOT_SUPPORTED,
          "the disk has neither an MBR nor a GPT; it is not opened for writing");

    AddBareDisk();

    ExpectRefused(KK_STATUS_NOT_SUPPORTED, {0, kDiskSize});
    EXPECT_THAT(Steps(),
                ::testing::ElementsAre("open drive 0", "geometry of drive 0", "layout of drive 0", "close drive 0"));
}

TEST_F(CreatePartitionRefusalTest, ADriveThatDoesNotOpenForWritingComesBeforeARegionWithoutRoom)
{
    SHOWS(KkCreatePartition, 0xC0000022,
          "the drive does not open for writing, which comes before a region without room");

    AddDisk(kSmallGpt, {});
    machine.faults.Fail({.kind = machine::CallKind::CreateFile}, 2, 0xC0000022);

    ExpectRefused(Status(0xC0000022), {0, 0});
}

TEST_F(CreatePartitionRefusalTest, ARegionWithoutRoom)
{
    SHOWS(KkCreatePartition, KK_STATUS_BUFFER_TOO_SMALL,
          "the region has no room for the size, or less than 1 MiB for a size of 0, or lies past the disk");

    for (const DiskKind& kind : kDiskKinds) {
        AddDisk(kind, {});
        const int32_t tooSmall = KK_STATUS_BUFFER_TOO_SMALL;
        ExpectRefused(tooSmall, {0, 65536});
        ExpectRefused(tooSmall, {0, kMiB});
        ExpectRefused(tooSmall, {0, 0});
        ExpectRefused(tooSmall, {4 * kMiB, 0}, 512);
        ExpectRefused(tooSmall, {4 * kMiB, kMiB - 1});
        ExpectRefused(tooSmall, {4 * kMiB + 1, kMiB - 1});
        ExpectRefused(tooSmall, {4 * kMiB, 2 * kMiB}, 2 * kMiB + 1);
        ExpectRefused(tooSmall, {kDiskSize, kMiB});
        ExpectRefused(tooSmall, {kDiskSize + kMiB, kMiB}, 512);
    }
}

TEST_F(CreatePartitionRefusalTest, APartitionInTheWay)
{
    SHOWS(KkCreatePartition, KK_STATUS_INVALID_PARAMETER, "a partition lies in the way, wholly or by a sector");
    SHOWS(KkCreatePartition, KK_STATUS_SUCCESS, "a partition may touch others at both ends");

    for (const DiskKind& kind : kDiskKinds) {
        AddDisk(kind, {{8 * kMiB, 8 * kMiB}});
        const uint64_t sector = kind.sectorSize;
        ExpectRefused(KK_STATUS_INVALID_PARAMETER, {8 * kMiB, 8 * kMiB});
        ExpectRefused(KK_STATUS_INVALID_PARAMETER, {0, kDiskSize});
        ExpectRefused(KK_STATUS_INVALID_PARAMETER, {10 * kMiB, kMiB});
        ExpectRefused(KK_STATUS_INVALID_PARAMETER, {4 * kMiB, 8 * kMiB}, 4 * kMiB + sector);
        ExpectRefused(KK_STATUS_INVALID_PARAMETER, {15 * kMiB, 8 * kMiB}, sector);

        EXPECT_EQ(Create(4 * kMiB, 8 * kMiB, 4 * kMiB), 0) << "up to its first sector, " << kind;
        EXPECT_EQ(Create(16 * kMiB, 8 * kMiB), 0) << "from its last sector on, " << kind;
    }
}

TEST_F(CreatePartitionRefusalTest, ALogicalDriveInTheWay)
{
    SHOWS(KkCreatePartition, KK_STATUS_INVALID_PARAMETER, "a logical drive lies in the way");

    AddBareDisk().Mbr({.logicals = {{8 * kMiB, 8 * kMiB}}});

    ExpectRefused(KK_STATUS_INVALID_PARAMETER, {10 * kMiB, 20 * kMiB});
}

TEST_F(CreatePartitionRefusalTest, NoRoomComesBeforeAPartitionInTheWay)
{
    SHOWS(KkCreatePartition, KK_STATUS_BUFFER_TOO_SMALL, "a lack of room comes before a partition in the way");

    AddDisk(kSmallGpt, {{8 * kMiB, 8 * kMiB}});

    ExpectRefused(KK_STATUS_BUFFER_TOO_SMALL, {8 * kMiB, 4 * kMiB}, 4 * kMiB + 1);
}

TEST_F(CreatePartitionRefusalTest, AnMbrWhoseFourRecordsAreInUse)
{
    SHOWS(KkCreatePartition, KK_STATUS_DISK_FULL, "the four entries of the MBR are in use");
    SHOWS(KkCreatePartition, KK_STATUS_INVALID_PARAMETER, "a partition in the way comes before a full table");

    for (const DiskKind& kind : {kSmallMbr, kLargeMbr}) {
        AddDisk(kind, {{kMiB, kMiB}, {3 * kMiB, kMiB}, {5 * kMiB, kMiB}, {7 * kMiB, kMiB}});
        ExpectRefused(KK_STATUS_DISK_FULL, {16 * kMiB, 8 * kMiB});
        ExpectRefused(KK_STATUS_INVALID_PARAMETER, {kMiB, kMiB});
    }
}

TEST_F(CreatePartitionRefusalTest, AnExtendedPartitionTakesARecordToo)
{
    SHOWS(KkCreatePartition, KK_STATUS_DISK_FULL, "an extended partition takes one of the four entries");

    AddBareDisk().Mbr(
        {.partitions = {{kMiB, kMiB}, {3 * kMiB, kMiB}, {5 * kMiB, kMiB}}, .logicals = {{8 * kMiB, 2 * kMiB}}});

    ExpectRefused(KK_STATUS_DISK_FULL, {16 * kMiB, 8 * kMiB});
}

TEST_F(CreatePartitionRefusalTest, AGptWhoseHundredAndTwentyEightEntriesAreInUse)
{
    SHOWS(KkCreatePartition, KK_STATUS_DISK_FULL, "the 128 entries of the GPT are in use");

    for (const DiskKind& kind : {kSmallGpt, kLargeGpt}) {
        std::vector<Place> all;
        for (uint64_t i = 0; i < 128; ++i) {
            all.push_back({kMiB + i * 8 * kKiB, 8 * kKiB});
        }
        AddDisk(kind, all);
        ExpectRefused(KK_STATUS_DISK_FULL, {16 * kMiB, 8 * kMiB});
    }
}

TEST_F(CreatePartitionRefusalTest, ADiskThatCannotBeWritten)
{
    SHOWS(KkCreatePartition, 0xC00000A2, "the disk is write-protected; nothing changes");

    for (const DiskKind& kind : kDiskKinds) {
        AddDisk(kind, {}).behaviour.readOnly = true;
        const DiskBytes before(TheDisk());

        EXPECT_EQ(Create(0, kDiskSize), Status(0xC00000A2)) << kind;
        EXPECT_EQ(created, kNotWritten);
        before.ExpectUnchanged();
    }
}

}  // namespace
