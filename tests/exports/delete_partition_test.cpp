#include "exports/support/partition_edit_test.h"

namespace {

class DeletePartitionTest : public PartitionEditTest {
protected:
    void ExpectRefused(int32_t status, uint64_t start)
    {
        EXPECT_EQ(Delete(start), status) << start;
        EXPECT_EQ(machine.journal.Count({.object = "HarddiskVolume"}), 0u);
        EXPECT_EQ(Steps().size(), 4u) << "the layout was read and nothing else done";
        EXPECT_TRUE(written.empty());
    }
};

TEST_F(DeletePartitionTest, TheEntryBecomesZeroAndNothingElseButTheChecksumsChanges)
{
    SHOWS(KkDeletePartition, KK_STATUS_SUCCESS,
          "the entry becomes zero; nothing else changes but the checksums, and the data stays");

    for (const DiskKind& kind : kDiskKinds) {
        AddDisk(kind, {{kMiB, kMiB}, {4 * kMiB, 4 * kMiB}, {8 * kMiB, kMiB}});
        TheDisk().WriteBytes(4 * kMiB, std::vector<uint8_t>(4 * kMiB, 0x5A));
        const DiskBytes before(TheDisk());

        ASSERT_EQ(Delete(4 * kMiB), 0) << kind;

        const std::vector<Place> changed = BytesOfEntry(kind, kDiskSize, 1);
        before.ExpectUnchangedBut(changed);
        const std::vector<uint8_t> entry = TheDisk().ReadBytes(changed[0].start, changed[0].length);
        EXPECT_EQ(entry, std::vector<uint8_t>(entry.size())) << kind;
        EXPECT_EQ(Partitions(), (std::vector<Place>{{kMiB, kMiB}, {8 * kMiB, kMiB}})) << kind;
        EXPECT_EQ(ReadSlots(TheDisk(), kind).size(), 3u);
    }
}

TEST_F(DeletePartitionTest, ItsVolumeGoes)
{
    SHOWS(KkDeletePartition, KK_STATUS_SUCCESS, "the volume and its letter go; others stay");

    AddDisk(kSmallGpt, {{kMiB, kMiB}, {4 * kMiB, 4 * kMiB}});
    const std::shared_ptr<machine::Volume> volume = machine.volumes.Find(0, 4 * kMiB);
    machine.AssignLetter(*volume, u'S');

    ASSERT_EQ(Delete(4 * kMiB), 0);

    EXPECT_FALSE(volume->IsPresent());
    EXPECT_EQ(machine.volumes.FindByLetter(u'S'), nullptr);
    EXPECT_NE(machine.FindVolume(0, kMiB), nullptr);
}

TEST_F(DeletePartitionTest, APartitionWithoutAVolumeGoesToo)
{
    SHOWS(KkDeletePartition, KK_STATUS_SUCCESS, "a partition without a volume goes too");

    uint64_t start = 0;
    for (const DiskKind& kind : kDiskKinds) {
        start += kMiB;  // a place that had no volume once never has one
        AddDisk(kind, {{start, 4 * kMiB}});
        machine.HideVolume(*machine.FindVolume(0, start));

        EXPECT_EQ(Delete(start), 0) << kind;

        EXPECT_TRUE(ReadSlots(TheDisk(), kind).empty()) << kind;
    }
}

TEST_F(DeletePartitionTest, AStartThatIsOffByOneIsNobodys)
{
    SHOWS(KkDeletePartition, KK_STATUS_INVALID_PARAMETER, "no partition starts exactly there");

    for (const DiskKind& kind : kDiskKinds) {
        AddDisk(kind, {{4 * kMiB, 4 * kMiB}});
        ExpectRefused(KK_STATUS_INVALID_PARAMETER, 4 * kMiB - 1);
        ExpectRefused(KK_STATUS_INVALID_PARAMETER, 4 * kMiB + 1);
        ExpectRefused(KK_STATUS_INVALID_PARAMETER, 5 * kMiB);
        ExpectRefused(KK_STATUS_INVALID_PARAMETER, 0);
        ExpectRefused(KK_STATUS_INVALID_PARAMETER, UINT64_MAX);
    }
}

TEST_F(DeletePartitionTest, AnEmptyTableHasNothingToDelete)
{
    SHOWS(KkDeletePartition, KK_STATUS_INVALID_PARAMETER, "an empty table has no partition");

    for (const DiskKind& kind : kDiskKinds) {
        AddDisk(kind, {});
        ExpectRefused(KK_STATUS_INVALID_PARAMETER, 0);
        ExpectRefused(KK_STATUS_INVALID_PARAMETER, kMiB);
    }
}

TEST_F(DeletePartitionTest, ADiskWithoutATableIsNotSupported)
{
    SHOWS(KkDeletePartition, KK_STATUS_NOT_SUPPORTED, "the disk has neither an MBR nor a GPT");

    AddBareDisk();

    ExpectRefused(KK_STATUS_NOT_SUPPORTED, 0);
}

TEST_F(DeletePartitionTest, ADiskThatCannotBeLookedAtGivesItsOwnStatus)
{
    SHOWS(KkDeletePartition, 0xC0000034, "the status of a disk that does not open is passed on");
    SHOWS(KkDeletePartition, 0xC000009C, "the status of a layout that cannot be read is passed on");

    EXPECT_EQ(Delete(kMiB), Status(0xC0000034));

    AddDisk(kSmallGpt, {{kMiB, kMiB}});
    Refuse(0x70050, 0xC000009C);
    EXPECT_EQ(Delete(kMiB), Status(0xC000009C));
}

TEST_F(DeletePartitionTest, AnExtendedPartitionIsNotOneThatCanBeNamed)
{
    SHOWS(KkDeletePartition, KK_STATUS_INVALID_PARAMETER, "the extended container cannot be named");

    AddBareDisk().Mbr({.logicals = {{8 * kMiB, 4 * kMiB}}});

    ExpectRefused(KK_STATUS_INVALID_PARAMETER, 7 * kMiB);
}

TEST_F(DeletePartitionTest, ALogicalDriveLosesItsMountAndStays)
{
    SHOWS(KkDeletePartition, KK_STATUS_INVALID_PARAMETER,
          "a logical drive is dismounted and stays; nothing on the disk changes");

    machine::Disk& disk = AddBareDisk().Mbr({.logicals = {{8 * kMiB, 4 * kMiB}, {16 * kMiB, kMiB}}});
    const DiskBytes before(disk);

    EXPECT_EQ(Delete(8 * kMiB), KK_STATUS_INVALID_PARAMETER);

    EXPECT_EQ(machine.journal.Count({.code = 0x90020}), 1u);
    EXPECT_THAT(Steps(), ::testing::Not(::testing::Contains("refresh drive 0")));
    EXPECT_EQ(Partitions().size(), 2u);
    before.ExpectUnchanged();
}

TEST_F(DeletePartitionTest, ThePartitionThatTheCopiesHoldInDifferentSlotsGoesFromBoth)
{
    SHOWS(KkDeletePartition, KK_STATUS_SUCCESS,
          "a partition that the copies of a GPT hold in different entries goes from both");

    AddDisk(kSmallGpt, {{kMiB, kMiB}, {4 * kMiB, 4 * kMiB}});
    const TableSectors sectors(kSmallGpt, kDiskSize);
    const std::vector<uint8_t> first = TheDisk().ReadBytes(sectors.backupArray.start, 128);
    const std::vector<uint8_t> second = TheDisk().ReadBytes(sectors.backupArray.start + 128, 128);
    TheDisk().WriteBytes(sectors.backupArray.start, second).WriteBytes(sectors.backupArray.start + 128, first);

    ASSERT_EQ(Delete(4 * kMiB), 0);

    const auto backup = ReadGpt(TheDisk(), kDiskSize / 512 - 1);
    EXPECT_TRUE(backup.sound);
    EXPECT_EQ(backup.Slots(512)[0], std::nullopt);
    EXPECT_EQ(backup.Slots(512)[1], (Place{kMiB, kMiB}));
}

}  // namespace
