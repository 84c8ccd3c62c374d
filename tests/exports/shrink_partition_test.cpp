#include "exports/support/partition_edit_test.h"

// How far a partition is shrunk, and what its file system is asked for.

namespace {

class ShrinkPartitionTest : public PartitionEditTest {
protected:
    void ExpectRefused(int32_t status, uint64_t start, uint64_t newSize)
    {
        EXPECT_EQ(Shrink(start, newSize), status) << newSize;
        EXPECT_EQ(machine.journal.Count({.code = 0x901B0}), 0u);
        EXPECT_EQ(machine.journal.Count({.object = "MountPointManager"}), 0u);
        EXPECT_TRUE(written.empty());
    }

    /// The numbers that each shrink request of the last call sent.
    std::vector<std::vector<uint64_t>> ShrinkRequests() const
    {
        std::vector<std::vector<uint64_t>> requests;
        for (const machine::CallRecord& call : machine.journal.FindAll({.code = 0x901B0})) {
            std::vector<uint64_t> numbers(call.input.size() / sizeof(uint64_t));
            std::memcpy(numbers.data(), call.input.data(), call.input.size());
            requests.push_back(numbers);
        }
        return requests;
    }
};

TEST_F(ShrinkPartitionTest, TheEntrysEndMovesAndNothingElseButTheChecksumsChanges)
{
    SHOWS(KkShrinkPartition, KK_STATUS_SUCCESS, "the entry's end moves and nothing else changes but the checksums");

    for (const DiskKind& kind : kDiskKinds) {
        AddDisk(kind, {{kMiB, kMiB}, {4 * kMiB, 16 * kMiB}, {20 * kMiB, kMiB}});
        const DiskBytes before(TheDisk());

        ASSERT_EQ(Shrink(4 * kMiB, 8 * kMiB), 0) << kind;

        before.ExpectUnchangedBut(BytesOfEntry(kind, kDiskSize, 1));
        EXPECT_EQ(Partitions()[1], (Place{4 * kMiB, 8 * kMiB})) << kind;
        EXPECT_EQ(ReadSlots(TheDisk(), kind)[1], (Place{4 * kMiB, 8 * kMiB})) << kind;
        EXPECT_EQ(machine.FindVolume(0, 4 * kMiB)->Length(), 8 * kMiB) << kind;
    }
}

TEST_F(ShrinkPartitionTest, OfAGptEntryOnlyTheLastSectorMoves)
{
    SHOWS(KkShrinkPartition, KK_STATUS_SUCCESS, "of a GPT entry only the last sector moves");

    AddDisk(kSmallGpt, {{4 * kMiB, 16 * kMiB}});
    const machine::GptEntryRecord before = ReadGpt(TheDisk(), 1).entries[0];

    ASSERT_EQ(Shrink(4 * kMiB, 8 * kMiB), 0);

    machine::GptEntryRecord after = ReadGpt(TheDisk(), 1).entries[0];
    EXPECT_EQ(after.lastLba, 12 * kMiB / 512 - 1);
    after.lastLba = before.lastLba;
    EXPECT_EQ(std::memcmp(&after, &before, sizeof(after)), 0);
}

TEST_F(ShrinkPartitionTest, OfAnMbrRecordOnlyTheLengthChanges)
{
    SHOWS(KkShrinkPartition, KK_STATUS_SUCCESS, "of an MBR entry only the length changes");

    AddDisk(kLargeMbr, {{4 * kMiB, 16 * kMiB}});
    const machine::MbrEntryRecord before = ReadMbr(TheDisk()).entries[0];

    ASSERT_EQ(Shrink(4 * kMiB, 8 * kMiB), 0);

    machine::MbrEntryRecord after = ReadMbr(TheDisk()).entries[0];
    EXPECT_EQ(after.sectorCount, 8 * kMiB / 4096);
    after.sectorCount = before.sectorCount;
    EXPECT_EQ(std::memcmp(&after, &before, sizeof(after)), 0);
}

TEST_F(ShrinkPartitionTest, TheFileSystemHearsTheTargetInSectorsAndThenOfTheCommitment)
{
    SHOWS(KkShrinkPartition, KK_STATUS_SUCCESS, "the file system is told the target in sectors, and then to commit");

    for (const DiskKind& kind : kDiskKinds) {
        AddDisk(kind, {{4 * kMiB, 16 * kMiB}});

        ASSERT_EQ(Shrink(4 * kMiB, 8 * kMiB - 5), 0) << kind;

        const std::vector<std::vector<uint64_t>> expected = {{1, 0, 8 * kMiB / kind.sectorSize}, {2, 0, 0}};
        EXPECT_EQ(ShrinkRequests(), expected) << kind;
    }
}

TEST_F(ShrinkPartitionTest, AWantedSizeIsRoundedUpToWholeMiB)
{
    SHOWS(KkShrinkPartition, KK_STATUS_SUCCESS, "the wanted size is rounded up to whole MiB");

    for (const DiskKind& kind : kDiskKinds) {
        AddDisk(kind, {{4 * kMiB, 16 * kMiB}});

        ASSERT_EQ(Shrink(4 * kMiB, 8 * kMiB + 1), 0) << kind;
        EXPECT_EQ(Partitions()[0].length, 9 * kMiB) << kind;
        ASSERT_EQ(Shrink(4 * kMiB, 1), 0) << kind;
        EXPECT_EQ(Partitions()[0].length, kMiB) << kind;
    }
}

TEST_F(ShrinkPartitionTest, ASizeOfZeroIsHandedOnAsItIs)
{
    SHOWS(KkShrinkPartition, KK_STATUS_INVALID_PARAMETER,
          "a size of 0 is handed to the file system, whose refusal is passed on; nothing changes");

    AddDisk(kSmallMbr, {{4 * kMiB, 16 * kMiB}});
    const DiskBytes before(TheDisk());

    EXPECT_EQ(Shrink(4 * kMiB, 0), KK_STATUS_INVALID_PARAMETER) << "the file system does not want that";

    EXPECT_EQ(ShrinkRequests(), (std::vector<std::vector<uint64_t>>{{1, 0, 0}}));
    before.ExpectUnchanged();
}

TEST_F(ShrinkPartitionTest, ATargetThatIsNotBelowThePresentLengthIsRefused)
{
    SHOWS(KkShrinkPartition, KK_STATUS_INVALID_PARAMETER,
          "the rounded size is not below the present one; the volume is not looked for");

    for (const DiskKind& kind : kDiskKinds) {
        AddDisk(kind, {{4 * kMiB, 10 * kMiB}});
        ExpectRefused(KK_STATUS_INVALID_PARAMETER, 4 * kMiB, 9961472);
        ExpectRefused(KK_STATUS_INVALID_PARAMETER, 4 * kMiB, 10 * kMiB);
        ExpectRefused(KK_STATUS_INVALID_PARAMETER, 4 * kMiB, 9 * kMiB + 1);
        ExpectRefused(KK_STATUS_INVALID_PARAMETER, 4 * kMiB, 11 * kMiB);
        EXPECT_EQ(machine.journal.Count({.object = "HarddiskVolume"}), 0u) << "judged before the volume is looked for";
    }
}

TEST_F(ShrinkPartitionTest, APartitionWithoutAVolumeIsNeverShrunk)
{
    SHOWS(KkShrinkPartition, KK_STATUS_INVALID_PARAMETER, "the partition has no volume");

    AddDisk(kSmallGpt, {{4 * kMiB, 16 * kMiB}});
    machine.HideVolume(*machine.FindVolume(0, 4 * kMiB));

    ExpectRefused(KK_STATUS_INVALID_PARAMETER, 4 * kMiB, 8 * kMiB);
}

TEST_F(ShrinkPartitionTest, AVolumeWhoseNumberIsTooHighIsNotFound)
{
    SHOWS(KkShrinkPartition, KK_STATUS_INVALID_PARAMETER, "a volume with a number above 127 is not found");
    SHOWS(KkShrinkPartition, KK_STATUS_SUCCESS, "a volume with the number 127 is found");

    AddDisk(kSmallGpt, {{4 * kMiB, 16 * kMiB}});
    machine.SetVolumeNumber(*machine.FindVolume(0, 4 * kMiB), 128);
    ExpectRefused(KK_STATUS_INVALID_PARAMETER, 4 * kMiB, 8 * kMiB);

    machine.SetVolumeNumber(*machine.FindVolume(0, 4 * kMiB), 127);
    EXPECT_EQ(Shrink(4 * kMiB, 8 * kMiB), 0);
}

TEST_F(ShrinkPartitionTest, AStartThatIsOffByOneIsNobodys)
{
    SHOWS(KkShrinkPartition, KK_STATUS_INVALID_PARAMETER, "no partition starts exactly there");

    for (const DiskKind& kind : kDiskKinds) {
        AddDisk(kind, {{4 * kMiB, 16 * kMiB}});
        for (const uint64_t start : {4 * kMiB - 1, 4 * kMiB + 1, uint64_t{0}, UINT64_MAX}) {
            ExpectRefused(KK_STATUS_INVALID_PARAMETER, start, 8 * kMiB);
            EXPECT_EQ(machine.journal.Count({.kind = machine::CallKind::CreateFile}), 1u);
        }
    }
}

TEST_F(ShrinkPartitionTest, DisksThatCannotBeUsedGiveTheirStatus)
{
    SHOWS(KkShrinkPartition, 0xC0000034, "the status of a disk that does not open is passed on");
    SHOWS(KkShrinkPartition, KK_STATUS_NOT_SUPPORTED, "the disk has neither an MBR nor a GPT");
    SHOWS(KkShrinkPartition, 0xC000009C, "the status of a layout that cannot be read is passed on");

    EXPECT_EQ(Shrink(kMiB, kMiB), Status(0xC0000034));

    AddBareDisk();
    ExpectRefused(KK_STATUS_NOT_SUPPORTED, kMiB, kMiB);

    AddDisk(kSmallGpt, {{kMiB, 4 * kMiB}});
    Refuse(0x70050, 0xC000009C);
    ExpectRefused(Status(0xC000009C), kMiB, kMiB);
}

TEST_F(ShrinkPartitionTest, AFileSystemThatCannotShrinkSaysSo)
{
    SHOWS(KkShrinkPartition, 0xC0000010, "a file system that cannot shrink says so; nothing changes");

    AddDisk(kSmallGpt, {{4 * kMiB, 34 * kMiB}}).Format(4 * kMiB, 34 * kMiB, machine::FileSystem::Fat32);
    const DiskBytes before(TheDisk());

    EXPECT_EQ(Shrink(4 * kMiB, 8 * kMiB), Status(0xC0000010));

    EXPECT_EQ(ShrinkRequests().size(), 1u);
    before.ExpectUnchanged();
}

TEST_F(ShrinkPartitionTest, ALogicalDriveKeepsItsPlaceAfterItsFileSystemWasShrunk)
{
    SHOWS(KkShrinkPartition, KK_STATUS_INVALID_PARAMETER,
          "a logical drive keeps its place after its file system was shrunk");

    machine::Disk& disk = AddBareDisk().Mbr({.logicals = {{4 * kMiB, 8 * kMiB}}});
    const DiskBytes before(disk);

    EXPECT_EQ(Shrink(4 * kMiB, 2 * kMiB), KK_STATUS_INVALID_PARAMETER);

    EXPECT_EQ(ShrinkRequests().size(), 2u) << "prepared and committed";
    EXPECT_EQ(Partitions(), (std::vector<Place>{{4 * kMiB, 8 * kMiB}}));
    before.ExpectUnchanged();
}

}  // namespace
