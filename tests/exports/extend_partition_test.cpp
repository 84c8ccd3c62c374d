#include "exports/support/partition_edit_test.h"

// How far a partition is extended, and what the driver is asked for.

namespace {

class ExtendPartitionTest : public PartitionEditTest {
protected:
    /// Where the usable part of a disk ends.
    static uint64_t UsableEnd(const DiskKind& kind)
    {
        return kind.table == TableKind::Gpt ? kDiskSize - 34 * kind.sectorSize : kDiskSize;
    }

    void ExpectRefused(int32_t status, uint64_t start, uint64_t newSize)
    {
        EXPECT_EQ(Extend(start, newSize), status) << newSize;
        EXPECT_EQ(machine.journal.Count({.code = 0x7C0D0}), 0u);
        EXPECT_EQ(machine.journal.Count({.object = "HarddiskVolume"}), 0u);
        EXPECT_TRUE(written.empty());
    }
};

TEST_F(ExtendPartitionTest, ANewSizeIsTheWholeSizeInSectors)
{
    SHOWS(KkExtendPartition, KK_STATUS_SUCCESS,
          "the new size is the whole size; entry and file system grow to it and nothing else changes");

    for (const DiskKind& kind : kDiskKinds) {
        AddDisk(kind, {{kMiB, 8 * kMiB}});
        const DiskBytes before(TheDisk());

        ASSERT_EQ(Extend(kMiB, 12 * kMiB), 0) << kind;

        EXPECT_EQ(Partitions(), (std::vector<Place>{{kMiB, 12 * kMiB}})) << kind;
        EXPECT_EQ(ReadSlots(TheDisk(), kind)[0], (Place{kMiB, 12 * kMiB}));
        before.ExpectUnchangedBut(BytesOfEntry(kind, kDiskSize, 0));
        EXPECT_EQ(SentWith(0x900F0), (std::vector<uint64_t>{12 * kMiB / kind.sectorSize}));
    }
}

TEST_F(ExtendPartitionTest, OneByteMoreIsOneSectorMore)
{
    SHOWS(KkExtendPartition, KK_STATUS_SUCCESS, "one byte more is one sector more");

    for (const DiskKind& kind : kDiskKinds) {
        AddDisk(kind, {{kMiB, 8 * kMiB}});

        ASSERT_EQ(Extend(kMiB, 8 * kMiB + 1), 0) << kind;

        EXPECT_EQ(SentWith(0x7C0D0), (std::vector<uint64_t>{1, kind.sectorSize}));
        EXPECT_EQ(SentWith(0x900F0), (std::vector<uint64_t>{8 * kMiB / kind.sectorSize + 1}));
        EXPECT_EQ(Partitions(), (std::vector<Place>{{kMiB, 8 * kMiB + kind.sectorSize}})) << kind;
    }
}

TEST_F(ExtendPartitionTest, TheDriverIsToldTheDifferenceAndTheNumberFromTheLayout)
{
    SHOWS(KkExtendPartition, KK_STATUS_SUCCESS, "the driver is told the difference and the partition's own number");

    for (const DiskKind& kind : kDiskKinds) {
        AddDisk(kind, {{kMiB, kMiB}, {4 * kMiB, kMiB}, {8 * kMiB, kMiB}});
        ASSERT_EQ(Delete(4 * kMiB), 0);

        ASSERT_EQ(Extend(8 * kMiB, 3 * kMiB), 0) << kind;

        EXPECT_EQ(SentWith(0x7C0D0), (std::vector<uint64_t>{3, 2 * kMiB})) << "the second of two has the number 3";
        EXPECT_EQ(Partitions(), (std::vector<Place>{{kMiB, kMiB}, {8 * kMiB, 3 * kMiB}})) << kind;

        TheDisk().SetPartitionNumber(kMiB, 7);
        ASSERT_EQ(Extend(kMiB, 2 * kMiB), 0) << kind;
        EXPECT_EQ(SentWith(0x7C0D0), (std::vector<uint64_t>{7, kMiB}));
    }
}

TEST_F(ExtendPartitionTest, SizeZeroTakesAllTheRoomToTheUsableEnd)
{
    SHOWS(KkExtendPartition, KK_STATUS_SUCCESS, "a size of 0 takes all the room to the usable end of the disk");
    SHOWS(KkExtendPartition, KK_STATUS_INVALID_PARAMETER, "for a size of 0 there is nothing left to add");

    for (const DiskKind& kind : kDiskKinds) {
        AddDisk(kind, {{kMiB, kMiB}, {8 * kMiB, 8 * kMiB}});

        ASSERT_EQ(Extend(8 * kMiB, 0), 0) << kind;

        EXPECT_EQ(Partitions()[1], (Place{8 * kMiB, UsableEnd(kind) - 8 * kMiB})) << kind;
        EXPECT_EQ(Extend(8 * kMiB, 0), KK_STATUS_INVALID_PARAMETER) << "there is nothing left";
    }
}

TEST_F(ExtendPartitionTest, TheNextPartitionInPlaceEndsTheRoomWhateverItsSlot)
{
    SHOWS(KkExtendPartition, KK_STATUS_SUCCESS, "the room ends at the next partition on the disk, whatever its entry");
    SHOWS(KkExtendPartition, KK_STATUS_INVALID_PARAMETER, "a partition without a gap behind it has nothing to add");

    for (const DiskKind& kind : kDiskKinds) {
        AddDisk(kind, {{40 * kMiB, kMiB}, {8 * kMiB, kMiB}, {kMiB, kMiB}, {20 * kMiB, kMiB}});

        ASSERT_EQ(Extend(8 * kMiB, 0), 0) << kind;
        ASSERT_EQ(Extend(kMiB, 0), 0) << kind;

        EXPECT_EQ(Partitions()[1], (Place{8 * kMiB, 12 * kMiB})) << kind;
        EXPECT_EQ(Partitions()[2], (Place{kMiB, 7 * kMiB})) << kind;
        ExpectRefused(KK_STATUS_INVALID_PARAMETER, kMiB, 0);
    }
}

TEST_F(ExtendPartitionTest, TheRoomMayBeFilledToTheLastSectorAndNoFurther)
{
    SHOWS(KkExtendPartition, KK_STATUS_SUCCESS, "the room may be filled to its last sector");
    SHOWS(KkExtendPartition, KK_STATUS_BUFFER_TOO_SMALL, "one byte more than the room is refused");

    for (const DiskKind& kind : kDiskKinds) {
        AddDisk(kind, {{kMiB, kMiB}, {8 * kMiB, kMiB}});
        const uint64_t last = UsableEnd(kind) - 8 * kMiB;
        ExpectRefused(KK_STATUS_BUFFER_TOO_SMALL, kMiB, 7 * kMiB + 1);
        ExpectRefused(KK_STATUS_BUFFER_TOO_SMALL, 8 * kMiB, last + 1);

        EXPECT_EQ(Extend(kMiB, 7 * kMiB), 0) << kind;
        EXPECT_EQ(Extend(8 * kMiB, last), 0) << kind;
    }
}

TEST_F(ExtendPartitionTest, ASizeThatIsNotAboveThePresentOneIsRefused)
{
    SHOWS(KkExtendPartition, KK_STATUS_INVALID_PARAMETER, "the size is not above the present one");

    for (const DiskKind& kind : kDiskKinds) {
        AddDisk(kind, {{kMiB, 8 * kMiB}});
        ExpectRefused(KK_STATUS_INVALID_PARAMETER, kMiB, 8 * kMiB);
        ExpectRefused(KK_STATUS_INVALID_PARAMETER, kMiB, 8 * kMiB - 1);
        ExpectRefused(KK_STATUS_INVALID_PARAMETER, kMiB, 1);
    }
}

TEST_F(ExtendPartitionTest, AStartThatIsOffByOneIsNobodys)
{
    SHOWS(KkExtendPartition, KK_STATUS_INVALID_PARAMETER, "no partition starts exactly there");

    for (const DiskKind& kind : kDiskKinds) {
        AddDisk(kind, {{4 * kMiB, 4 * kMiB}});
        for (const uint64_t start : {4 * kMiB - 1, 4 * kMiB + 1, uint64_t{0}, UINT64_MAX}) {
            ExpectRefused(KK_STATUS_INVALID_PARAMETER, start, 8 * kMiB);
            EXPECT_EQ(Steps().back(), "close drive 0");
            EXPECT_EQ(machine.journal.Count({.kind = machine::CallKind::CreateFile}), 1u);
        }
    }
}

TEST_F(ExtendPartitionTest, DisksThatCannotBeUsedGiveTheirStatus)
{
    SHOWS(KkExtendPartition, 0xC0000034, "the status of a disk that does not open is passed on");
    SHOWS(KkExtendPartition, KK_STATUS_NOT_SUPPORTED, "the disk has neither an MBR nor a GPT");
    SHOWS(KkExtendPartition, 0xC000009C, "the status of a layout that cannot be read is passed on");

    EXPECT_EQ(Extend(kMiB, 0), Status(0xC0000034));

    AddBareDisk();
    ExpectRefused(KK_STATUS_NOT_SUPPORTED, kMiB, 0);

    AddDisk(kSmallGpt, {{kMiB, kMiB}});
    Refuse(0x70050, 0xC000009C);
    ExpectRefused(Status(0xC000009C), kMiB, 0);
}

TEST_F(ExtendPartitionTest, ALogicalDriveGrowsThroughTheDriverToo)
{
    SHOWS(KkExtendPartition, KK_STATUS_SUCCESS, "a logical drive grows through the driver too");

    AddBareDisk().Mbr({.logicals = {{4 * kMiB, 4 * kMiB}, {16 * kMiB, 4 * kMiB}}});

    ASSERT_EQ(Extend(4 * kMiB, 8 * kMiB), 0);

    EXPECT_EQ(SentWith(0x7C0D0), (std::vector<uint64_t>{1, 4 * kMiB}));
    EXPECT_EQ(Partitions(), (std::vector<Place>{{4 * kMiB, 8 * kMiB}, {16 * kMiB, 4 * kMiB}}));
}

TEST_F(ExtendPartitionTest, TheLinkBeforeTheNextLogicalDriveIsNotSeenButTheDriverMinds)
{
    SHOWS(KkExtendPartition, KK_STATUS_INVALID_PARAMETER,
          "the link before the next logical drive is not seen, but the driver refuses; nothing changes");

    machine::Disk& disk = AddBareDisk();
    disk.Mbr({.logicals = {{4 * kMiB, 4 * kMiB}, {16 * kMiB, 4 * kMiB}}});
    const DiskBytes before(disk);

    EXPECT_EQ(Extend(4 * kMiB, 0), KK_STATUS_INVALID_PARAMETER);

    EXPECT_EQ(SentWith(0x7C0D0), (std::vector<uint64_t>{1, 8 * kMiB})) << "up to the next drive itself";
    before.ExpectUnchanged();
}

}  // namespace
