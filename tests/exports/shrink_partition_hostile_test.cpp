#include "exports/support/partition_edit_test.h"

// Sizes, layouts and geometries that must not turn into a file system of a wrong size.

namespace {

constexpr uint64_t kHighBit = uint64_t{1} << 63;

class ShrinkPartitionHostileTest : public PartitionEditTest {
protected:
    /// What the file system was asked to shrink to, in sectors; it refuses. Nothing when it was not asked.
    std::optional<uint64_t> Asked(uint64_t start, uint64_t newSize)
    {
        Refuse(0x901B0, 0xC00000BB);
        const int32_t status = Shrink(start, newSize);
        EXPECT_TRUE(written.empty());
        if (machine.journal.Count({.code = 0x901B0}) == 0) {
            EXPECT_EQ(status, KK_STATUS_INVALID_PARAMETER);
            return std::nullopt;
        }
        EXPECT_EQ(status, Status(0xC00000BB));
        return SentWith(0x901B0).at(2);
    }
    /// Has the driver tell that the only partition is of this length.
    void PretendLength(uint64_t start, uint64_t length)
    {
        LayoutAnswer layout(kk::WirePartitionStyle::Mbr);
        layout.Add(1, static_cast<int64_t>(start), static_cast<int64_t>(length)).mbr.partitionType = 7;
        PretendLayout(layout);
    }
};

TEST_F(ShrinkPartitionHostileTest, SizesWhoseRoundingWrapsAreNotBelowAnyLength)
{
    SHOWS(KkShrinkPartition, KK_STATUS_INVALID_PARAMETER, "sizes whose rounding wraps are below no length");

    for (const DiskKind& kind : kDiskKinds) {
        AddDisk(kind, {{kMiB, 16 * kMiB}});
        for (const uint64_t size :
             {UINT64_MAX, UINT64_MAX - kMiB + 2, UINT64_MAX - kMiB + 1, UINT64_MAX - kMiB, kHighBit}) {
            EXPECT_EQ(Asked(kMiB, size), std::nullopt) << kind << ", " << size;
        }
    }
}

TEST_F(ShrinkPartitionHostileTest, ALengthOfTheLargestNumberIsBelowNoTarget)
{
    SHOWS(KkShrinkPartition, KK_STATUS_INVALID_PARAMETER,
          "a rounded size that wraps is not below a length of the largest number");
    SHOWS(KkShrinkPartition, KK_STATUS_NOT_SUPPORTED,
          "the file system's refusal is passed on, for lengths as large as numbers go");

    AddDisk(kSmallMbr, {{kMiB, 16 * kMiB}});
    PretendLength(kMiB, UINT64_MAX);

    EXPECT_EQ(Asked(kMiB, UINT64_MAX), std::nullopt);
    EXPECT_EQ(Asked(kMiB, UINT64_MAX - kMiB + 1), (UINT64_MAX - kMiB + 1) / 512);
    EXPECT_EQ(Asked(kMiB, kHighBit), kHighBit / 512);
}

TEST_F(ShrinkPartitionHostileTest, ALengthOfZeroIsBelowNothing)
{
    SHOWS(KkShrinkPartition, KK_STATUS_INVALID_PARAMETER, "nothing is below a length of 0");

    AddDisk(kSmallMbr, {{kMiB, 16 * kMiB}});
    PretendLength(kMiB, 0);

    EXPECT_EQ(Asked(kMiB, 0), std::nullopt);
    EXPECT_EQ(Asked(kMiB, 1), std::nullopt);
}

TEST_F(ShrinkPartitionHostileTest, TheSizeOfTheDiskDoesNotMatter)
{
    SHOWS(KkShrinkPartition, KK_STATUS_SUCCESS, "the disk need not tell its size");

    AddDisk(kSmallGpt, {{kMiB, 16 * kMiB}});
    TheDisk().behaviour.geometryFails = true;

    EXPECT_EQ(Shrink(kMiB, 8 * kMiB), 0);

    EXPECT_EQ(Partitions()[0].length, 8 * kMiB);
}

TEST_F(ShrinkPartitionHostileTest, SectorSizesOfAllKinds)
{
    SHOWS(KkShrinkPartition, KK_STATUS_NOT_SUPPORTED,
          "the file system is asked in sectors of the size that the disk tells, and its refusal passed on");

    AddDisk(kSmallMbr, {{kMiB, 16 * kMiB}});
    for (const auto& [sectorSize, sectors] : {std::pair<uint32_t, uint64_t>{0, 8 * kMiB / 512},
                                              {1, 8 * kMiB},
                                              {7, 8 * kMiB / 7},
                                              {520, 8 * kMiB / 520},
                                              {UINT32_MAX, 0}}) {
        PretendGeometry(kDiskSize, sectorSize);
        EXPECT_EQ(Asked(kMiB, 8 * kMiB), sectors) << sectorSize;
    }
}

TEST_F(ShrinkPartitionHostileTest, AWrongSectorSizeNeverReachesTheTable)
{
    SHOWS(KkShrinkPartition, "with a wrong sector size it fails and the table is not written");

    for (const DiskKind& kind : {kSmallGpt, kSmallMbr}) {
        for (const uint32_t sectorSize : {1u, 7u, 91u, 511u, 4096u}) {
            AddDisk(kind, {{kMiB, 16 * kMiB}});
            PretendGeometry(kDiskSize, sectorSize);
            machine.OnControl({.code = 0x901B0}, [](const machine::CallRecord&, const machine::ControlRequest&) {
                return std::optional(machine::ControlAnswer{});
            });

            EXPECT_LT(Shrink(kMiB, 8 * kMiB), 0) << kind << ", " << sectorSize;

            EXPECT_TRUE(written.empty());
        }
    }
}

}  // namespace
