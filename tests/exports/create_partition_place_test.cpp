#include "exports/support/partition_edit_test.h"

// Where a new partition goes and how long it is.

namespace {

class CreatePartitionPlaceTest : public PartitionEditTest {
protected:
    /// The partition that a region gives room for on an otherwise empty disk.
    Place Placed(const DiskKind& kind, const Place& region, uint64_t size = 0, uint64_t diskSize = kDiskSize)
    {
        AddDisk(kind, {}, diskSize);
        EXPECT_EQ(Create(region.start, region.length, size), 0) << kind;
        const std::vector<Place> partitions = Partitions();
        return partitions.size() == 1 ? partitions[0] : Place{};
    }
};

TEST_F(CreatePartitionPlaceTest, ARegionFromTheDisksStartGivesAPartitionAtOneMiB)
{
    SHOWS(KkCreatePartition, KK_STATUS_SUCCESS, "a region from the disk's start gives a partition at 1 MiB");

    for (const DiskKind& kind : kDiskKinds) {
        EXPECT_EQ(Placed(kind, {0, 10 * kMiB}), (Place{kMiB, 9 * kMiB})) << kind;
        EXPECT_EQ(created, kMiB);
    }
}

TEST_F(CreatePartitionPlaceTest, AStartIsRoundedUpToTheNextMiB)
{
    SHOWS(KkCreatePartition, KK_STATUS_SUCCESS, "the start is rounded up to the next MiB");

    for (const DiskKind& kind : kDiskKinds) {
        EXPECT_EQ(Placed(kind, {kMiB, 9 * kMiB}), (Place{kMiB, 9 * kMiB})) << kind;
        EXPECT_EQ(Placed(kind, {kMiB + 1, 9 * kMiB}), (Place{2 * kMiB, 8 * kMiB})) << kind;
        EXPECT_EQ(Placed(kind, {2 * kMiB - 1, 9 * kMiB}), (Place{2 * kMiB, 8 * kMiB})) << kind;
    }
}

TEST_F(CreatePartitionPlaceTest, AWantedSizeIsRoundedUpToWholeSectors)
{
    SHOWS(KkCreatePartition, KK_STATUS_SUCCESS, "the wanted size is rounded up to whole sectors");

    for (const DiskKind& kind : kDiskKinds) {
        EXPECT_EQ(Placed(kind, {0, 10 * kMiB}, 1000).length, kind.sectorSize == 512 ? 1024u : 4096u) << kind;
        EXPECT_EQ(Placed(kind, {0, 10 * kMiB}, 1).length, kind.sectorSize) << kind;
        EXPECT_EQ(Placed(kind, {0, 10 * kMiB}, 8 * kMiB).length, 8 * kMiB) << kind;
    }
}

TEST_F(CreatePartitionPlaceTest, AWantedSizeMayFillTheRegionToTheLastSector)
{
    SHOWS(KkCreatePartition, KK_STATUS_SUCCESS, "the wanted size may fill the region to its last sector");
    SHOWS(KkCreatePartition, KK_STATUS_BUFFER_TOO_SMALL,
          "a wanted size one byte above the region's room is refused, also when the region ends within a sector");

    for (const DiskKind& kind : kDiskKinds) {
        const uint64_t room = 9 * kMiB + kind.sectorSize;
        EXPECT_EQ(Placed(kind, {0, kMiB + room}, room), (Place{kMiB, room})) << kind;
        EXPECT_EQ(Create(32 * kMiB, room, room + 1), KK_STATUS_BUFFER_TOO_SMALL) << kind;
        EXPECT_EQ(Create(32 * kMiB, room + 1, room + 1), KK_STATUS_BUFFER_TOO_SMALL) << kind << ", part of a sector";
    }
}

TEST_F(CreatePartitionPlaceTest, AllTheRoomIsWholeMiBOnly)
{
    SHOWS(KkCreatePartition, KK_STATUS_SUCCESS, "a size of 0 takes all the room in whole MiB");

    for (const DiskKind& kind : kDiskKinds) {
        EXPECT_EQ(Placed(kind, {0, 10 * kMiB - 1}), (Place{kMiB, 8 * kMiB})) << kind;
    }
}

TEST_F(CreatePartitionPlaceTest, TheLastThirtyFourSectorsOfAGptDiskStayFree)
{
    SHOWS(KkCreatePartition, KK_STATUS_SUCCESS, "on a GPT disk the partition may reach to the last 34 sectors");
    SHOWS(KkCreatePartition, KK_STATUS_BUFFER_TOO_SMALL, "on a GPT disk the last 34 sectors are not used");

    EXPECT_EQ(Placed(kSmallGpt, {0, kGiB}, 0, kGiB), (Place{kMiB, 1071644672}));
    EXPECT_EQ(Placed(kSmallGpt, {0, kGiB}, 1072675840, kGiB), (Place{kMiB, 1072675840}));
    EXPECT_EQ(Placed(kLargeGpt, {0, kGiB}, kGiB - 34 * 4096 - kMiB, kGiB), (Place{kMiB, kGiB - 34 * 4096 - kMiB}));

    for (const DiskKind& kind : {kSmallGpt, kLargeGpt}) {
        AddDisk(kind, {}, kGiB);
        EXPECT_EQ(Create(0, kGiB, kGiB - 34 * kind.sectorSize - kMiB + 1), KK_STATUS_BUFFER_TOO_SMALL) << kind;
    }
}

TEST_F(CreatePartitionPlaceTest, AnMbrDiskIsUsableToItsEnd)
{
    SHOWS(KkCreatePartition, KK_STATUS_SUCCESS, "an MBR disk is usable to its end");

    for (const DiskKind& kind : {kSmallMbr, kLargeMbr}) {
        EXPECT_EQ(Placed(kind, {0, kDiskSize}), (Place{kMiB, kDiskSize - kMiB})) << kind;
        EXPECT_EQ(Placed(kind, {0, UINT64_MAX}, kDiskSize - kMiB), (Place{kMiB, kDiskSize - kMiB})) << kind;
    }
}

TEST_F(CreatePartitionPlaceTest, ARegionPastTheEndIsCutOff)
{
    SHOWS(KkCreatePartition, KK_STATUS_SUCCESS, "what of the region reaches past the disk is cut off");

    for (const DiskKind& kind : kDiskKinds) {
        const uint64_t length = kind.table == TableKind::Gpt ? 3 * kMiB : 4 * kMiB;
        EXPECT_EQ(Placed(kind, {kDiskSize - 4 * kMiB, kDiskSize}), (Place{kDiskSize - 4 * kMiB, length})) << kind;
        EXPECT_EQ(Placed(kind, {kDiskSize - 4 * kMiB, UINT64_MAX}), (Place{kDiskSize - 4 * kMiB, length})) << kind;
    }
}

TEST_F(CreatePartitionPlaceTest, AnMbrRecordKeepsThirtyTwoBitsOfTheSectorNumbers)
{
    SHOWS(KkCreatePartition, KK_STATUS_SUCCESS,
          "an MBR entry keeps 32 bits of the sector numbers; the partition then lies elsewhere");

    constexpr uint64_t kTwoTiB = uint64_t{1} << 41;
    AddDisk(kSmallMbr, {}, 2 * kTwoTiB);

    ASSERT_EQ(Create(kTwoTiB + 4 * kMiB, 8 * kMiB), 0);

    EXPECT_EQ(created, kTwoTiB + 4 * kMiB) << "the caller is told what was meant";
    EXPECT_EQ(Partitions(), (std::vector<Place>{{4 * kMiB, 8 * kMiB}}));
}

TEST_F(CreatePartitionPlaceTest, NobodyNeedsToBeToldWhereItIs)
{
    SHOWS(KkCreatePartition, KK_STATUS_SUCCESS, "the start need not be asked for");

    AddDisk(kSmallGpt, {});

    EXPECT_EQ(api.createPartition(0, 0, kDiskSize, 0, nullptr), 0);

    EXPECT_EQ(Partitions().size(), 1u);
}

}  // namespace
