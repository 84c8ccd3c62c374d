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
    for (const DiskKind& kind : kDiskKinds) {
        EXPECT_EQ(Placed(kind, {0, 10 * kMiB}), (Place{kMiB, 9 * kMiB})) << kind;
        EXPECT_EQ(created, kMiB);
    }
}

TEST_F(CreatePartitionPlaceTest, AStartIsRoundedUpToTheNextMiB)
{
    for (const DiskKind& kind : kDiskKinds) {
        EXPECT_EQ(Placed(kind, {kMiB, 9 * kMiB}), (Place{kMiB, 9 * kMiB})) << kind;
        EXPECT_EQ(Placed(kind, {kMiB + 1, 9 * kMiB}), (Place{2 * kMiB, 8 * kMiB})) << kind;
        EXPECT_EQ(Placed(kind, {2 * kMiB - 1, 9 * kMiB}), (Place{2 * kMiB, 8 * kMiB})) << kind;
    }
}

TEST_F(CreatePartitionPlaceTest, AWantedSizeIsRoundedUpToWholeSectors)
{
    for (const DiskKind& kind : kDiskKinds) {
        EXPECT_EQ(Placed(kind, {0, 10 * kMiB}, 1000).length, kind.sectorSize == 512 ? 1024u : 4096u) << kind;
        EXPECT_EQ(Placed(kind, {0, 10 * kMiB}, 1).length, kind.sectorSize) << kind;
        EXPECT_EQ(Placed(kind, {0, 10 * kMiB}, 8 * kMiB).length, 8 * kMiB) << kind;
    }
}

TEST_F(CreatePartitionPlaceTest, AWantedSizeMayFillTheRegionToTheLastSector)
{
    for (const DiskKind& kind : kDiskKinds) {
        const uint64_t room = 9 * kMiB + kind.sectorSize;
        EXPECT_EQ(Placed(kind, {0, kMiB + room}, room), (Place{kMiB, room})) << kind;
        EXPECT_EQ(Create(32 * kMiB, room, room + 1), KK_STATUS_BUFFER_TOO_SMALL) << kind;
        EXPECT_EQ(Create(32 * kMiB, room + 1, room + 1), KK_STATUS_BUFFER_TOO_SMALL) << kind << ", part of a sector";
    }
}

TEST_F(CreatePartitionPlaceTest, AllTheRoomIsWholeMiBOnly)
{
    for (const DiskKind& kind : kDiskKinds) {
        EXPECT_EQ(Placed(kind, {0, 10 * kMiB - 1}), (Place{kMiB, 8 * kMiB})) << kind;
    }
}

TEST_F(CreatePartitionPlaceTest, TheLastThirtyFourSectorsOfAGptDiskStayFree)
{
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
    for (const DiskKind& kind : {kSmallMbr, kLargeMbr}) {
        EXPECT_EQ(Placed(kind, {0, kDiskSize}), (Place{kMiB, kDiskSize - kMiB})) << kind;
        EXPECT_EQ(Placed(kind, {0, UINT64_MAX}, kDiskSize - kMiB), (Place{kMiB, kDiskSize - kMiB})) << kind;
    }
}

TEST_F(CreatePartitionPlaceTest, ARegionPastTheEndIsCutOff)
{
    for (const DiskKind& kind : kDiskKinds) {
        const uint64_t length = kind.table == TableKind::Gpt ? 3 * kMiB : 4 * kMiB;
        EXPECT_EQ(Placed(kind, {kDiskSize - 4 * kMiB, kDiskSize}), (Place{kDiskSize - 4 * kMiB, length})) << kind;
        EXPECT_EQ(Placed(kind, {kDiskSize - 4 * kMiB, UINT64_MAX}), (Place{kDiskSize - 4 * kMiB, length})) << kind;
    }
}

TEST_F(CreatePartitionPlaceTest, AnMbrRecordKeepsThirtyTwoBitsOfTheSectorNumbers)
{
    constexpr uint64_t kTwoTiB = uint64_t{1} << 41;
    AddDisk(kSmallMbr, {}, 2 * kTwoTiB);

    ASSERT_EQ(Create(kTwoTiB + 4 * kMiB, 8 * kMiB), 0);

    EXPECT_EQ(created, kTwoTiB + 4 * kMiB) << "the caller is told what was meant";
    EXPECT_EQ(Partitions(), (std::vector<Place>{{4 * kMiB, 8 * kMiB}}));
}

TEST_F(CreatePartitionPlaceTest, NobodyNeedsToBeToldWhereItIs)
{
    AddDisk(kSmallGpt, {});

    EXPECT_EQ(api.createPartition(0, 0, kDiskSize, 0, nullptr), 0);

    EXPECT_EQ(Partitions().size(), 1u);
}

}  // namespace
