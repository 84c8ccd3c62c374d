#include "exports/support/partition_edit_test.h"

// Regions, layouts and geometries that no sensible caller or disk has.

namespace {

constexpr uint64_t kHighBit = uint64_t{1} << 63;

class CreatePartitionHostileTest : public PartitionEditTest {
protected:
    void ExpectRefused(int32_t status, const Place& region, uint64_t size = 0)
    {
        EXPECT_EQ(Create(region.start, region.length, size), status) << region << ", size " << size;
        EXPECT_EQ(created, kNotWritten);
        EXPECT_TRUE(written.empty());
    }
    /// Has the driver tell of one MBR partition.
    void PretendPartition(uint64_t start, uint64_t length)
    {
        LayoutAnswer layout(kk::WirePartitionStyle::Mbr);
        layout.Add(1, static_cast<int64_t>(start), static_cast<int64_t>(length)).mbr.partitionType = 7;
        PretendLayout(layout);
    }
};

TEST_F(CreatePartitionHostileTest, RegionsAtTheEndOfAllNumbers)
{
    SHOWS(KkCreatePartition, KK_STATUS_BUFFER_TOO_SMALL, "regions at the end of all numbers have no room");

    for (const DiskKind& kind : kDiskKinds) {
        AddDisk(kind, {});
        for (const uint64_t start : {UINT64_MAX, UINT64_MAX - kMiB + 1, UINT64_MAX - kMiB, kHighBit, kHighBit - 1}) {
            for (const uint64_t length : {uint64_t{0}, uint64_t{1}, kMiB, kHighBit, UINT64_MAX}) {
                for (const uint64_t size : {uint64_t{0}, uint64_t{1}, UINT64_MAX}) {
                    ExpectRefused(KK_STATUS_BUFFER_TOO_SMALL, {start, length}, size);
                }
            }
        }
    }
}

TEST_F(CreatePartitionHostileTest, SizesAtTheEndOfAllNumbers)
{
    SHOWS(KkCreatePartition, KK_STATUS_BUFFER_TOO_SMALL, "sizes at the end of all numbers do not wrap");

    for (const DiskKind& kind : kDiskKinds) {
        AddDisk(kind, {});
        for (const uint64_t size : {UINT64_MAX, UINT64_MAX - 511, UINT64_MAX - 4095, kHighBit, kDiskSize}) {
            ExpectRefused(KK_STATUS_BUFFER_TOO_SMALL, {0, UINT64_MAX}, size);
        }
    }
}

TEST_F(CreatePartitionHostileTest, ARoundedSizeDoesNotWrapWithOddSectors)
{
    SHOWS(KkCreatePartition, KK_STATUS_BUFFER_TOO_SMALL, "a rounded size does not wrap with sectors of 520 bytes");

    AddDisk(kSmallMbr, {});
    PretendGeometry(kDiskSize, 520);

    ExpectRefused(KK_STATUS_BUFFER_TOO_SMALL, {0, UINT64_MAX}, UINT64_MAX);
    ExpectRefused(KK_STATUS_BUFFER_TOO_SMALL, {0, UINT64_MAX}, UINT64_MAX - 7);
}

TEST_F(CreatePartitionHostileTest, PartitionsWhoseEndsWrapAreInTheWayAllTheSame)
{
    SHOWS(KkCreatePartition, KK_STATUS_INVALID_PARAMETER, "partitions whose ends wrap are in the way all the same");

    for (const Place& other : {Place{4 * kMiB, UINT64_MAX}, Place{0, UINT64_MAX}, Place{kMiB, UINT64_MAX - kMiB},
                               Place{4 * kMiB, kHighBit}, Place{2 * kMiB, UINT64_MAX - 2 * kMiB + 1}}) {
        AddDisk(kSmallMbr, {});
        PretendPartition(other.start, other.length);
        ExpectRefused(KK_STATUS_INVALID_PARAMETER, {4 * kMiB, 8 * kMiB});
    }
}

TEST_F(CreatePartitionHostileTest, PartitionsElsewhereAreNotInTheWay)
{
    SHOWS(KkCreatePartition, KK_STATUS_SUCCESS, "partitions with nonsensical places elsewhere are not in the way");

    for (const Place& other : {Place{kHighBit, kHighBit}, Place{UINT64_MAX, UINT64_MAX}, Place{UINT64_MAX, 0},
                               Place{4 * kMiB, 0}, Place{12 * kMiB, UINT64_MAX}, Place{kMiB, 3 * kMiB}}) {
        AddDisk(kSmallMbr, {});
        PretendPartition(other.start, other.length);
        EXPECT_EQ(Create(4 * kMiB, 8 * kMiB), 0) << other;
    }
}

TEST_F(CreatePartitionHostileTest, APartitionOfNoLengthInsideTheRangeIsInTheWay)
{
    SHOWS(KkCreatePartition, KK_STATUS_INVALID_PARAMETER,
          "a partition of no length inside the wanted range is in the way");

    AddDisk(kSmallMbr, {});
    PretendPartition(5 * kMiB, 0);

    ExpectRefused(KK_STATUS_INVALID_PARAMETER, {4 * kMiB, 8 * kMiB});
}

TEST_F(CreatePartitionHostileTest, ADiskThatDoesNotTellItsSize)
{
    SHOWS(KkCreatePartition, KK_STATUS_BUFFER_TOO_SMALL, "a disk that does not tell its size has no room");

    for (const DiskKind& kind : kDiskKinds) {
        AddDisk(kind, {}).behaviour.geometryFails = true;
        ExpectRefused(KK_STATUS_BUFFER_TOO_SMALL, {0, kDiskSize});
        ExpectRefused(KK_STATUS_BUFFER_TOO_SMALL, {0, kDiskSize}, 512);
    }
}

TEST_F(CreatePartitionHostileTest, AGptDiskNoLongerThanItsReserveHasNoRoom)
{
    SHOWS(KkCreatePartition, KK_STATUS_BUFFER_TOO_SMALL, "a GPT disk no longer than its reserve has no room");
    SHOWS(KkCreatePartition, KK_STATUS_SUCCESS, "a GPT disk of one sector more has room for one");

    AddDisk(kSmallGpt, {});
    for (const uint64_t size : {uint64_t{1}, uint64_t{34 * 512 - 1}, uint64_t{34 * 512}, kMiB + 34 * 512}) {
        PretendGeometry(size, 512);
        ExpectRefused(KK_STATUS_BUFFER_TOO_SMALL, {0, UINT64_MAX}, 1);
    }
    PretendGeometry(kMiB + 35 * 512, 512);
    EXPECT_EQ(Create(0, UINT64_MAX, 1), 0);
}

TEST_F(CreatePartitionHostileTest, AnMbrDiskOfNegativeSizeIsAVeryLargeOne)
{
    SHOWS(KkCreatePartition, KK_STATUS_SUCCESS, "a negative disk size is a very large one");

    AddDisk(kSmallMbr, {});
    PretendGeometry(UINT64_MAX, 512);

    EXPECT_EQ(Create(8 * kMiB, UINT64_MAX, 16 * kMiB), 0);

    EXPECT_EQ(ReadSlots(TheDisk(), kSmallMbr)[0], (Place{8 * kMiB, 16 * kMiB}));
}

TEST_F(CreatePartitionHostileTest, ASectorSizeOfZeroMeans512)
{
    SHOWS(KkCreatePartition, KK_STATUS_SUCCESS, "a reported sector size of 0 means 512");

    for (const DiskKind& kind : {kSmallGpt, kSmallMbr}) {
        AddDisk(kind, {}).behaviour.reportsZeroBytesPerSector = true;

        EXPECT_EQ(Create(0, kDiskSize, 513), 0) << kind;

        EXPECT_EQ(ReadSlots(TheDisk(), kind)[0], (Place{kMiB, 1024}));
    }
}

TEST_F(CreatePartitionHostileTest, SectorsTooSmallForATable)
{
    SHOWS(KkCreatePartition, "with sectors too small for a table nothing is written");

    for (const DiskKind& kind : {kSmallGpt, kSmallMbr}) {
        for (const uint32_t sectorSize : {1u, 7u, 91u, 256u}) {
            AddDisk(kind, {});
            PretendGeometry(kDiskSize, sectorSize);
            const int32_t status = Create(4 * kMiB, 8 * kMiB);
            EXPECT_TRUE(status == KK_STATUS_REGISTRY_CORRUPT || status == KK_STATUS_INVALID_PARAMETER)
                << kind << ", " << sectorSize << ": " << std::hex << status;
            EXPECT_TRUE(written.empty());
        }
    }
}

TEST_F(CreatePartitionHostileTest, SectorsSoLargeThatNothingIsLeft)
{
    SHOWS(KkCreatePartition, KK_STATUS_BUFFER_TOO_SMALL, "sectors so large that nothing is left on the disk");
    SHOWS(KkCreatePartition, KK_STATUS_NO_MEMORY, "no memory for a sector of nearly 4 GiB");

    AddDisk(kSmallGpt, {});
    PretendGeometry(kDiskSize, UINT32_MAX);
    ExpectRefused(KK_STATUS_BUFFER_TOO_SMALL, {0, kDiskSize});

    AddDisk(kSmallMbr, {});
    machine.heap.SetLimit(kMiB);
    ExpectRefused(KK_STATUS_BUFFER_TOO_SMALL, {0, kDiskSize}, 1);
    ExpectRefused(KK_STATUS_NO_MEMORY, {0, kDiskSize});
}

TEST_F(CreatePartitionHostileTest, AnAnswerThatCountsMorePartitionsThanItHolds)
{
    SHOWS(KkCreatePartition, KK_STATUS_INVALID_PARAMETER,
          "a layout that counts more partitions than it holds: those that it holds are in the way");
    SHOWS(KkCreatePartition, KK_STATUS_SUCCESS, "the ones that it only counts are not");

    AddDisk(kSmallMbr, {});
    LayoutAnswer layout(kk::WirePartitionStyle::Mbr);
    layout.Add(1, kMiB, kMiB).mbr.partitionType = 7;
    layout.head.partitionCount = UINT32_MAX;
    PretendLayout(layout);

    ExpectRefused(KK_STATUS_INVALID_PARAMETER, {kMiB, kMiB});
    EXPECT_EQ(Create(4 * kMiB, 8 * kMiB), 0);
}

}  // namespace
