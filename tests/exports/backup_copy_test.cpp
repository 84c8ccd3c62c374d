#include "exports/support/backup_test.h"

// How much of each partition KkBackup copies, where it reads it, and what image it makes.

namespace {

using machine::CallKind;

class BackupCopyTest : public BackupTest {};

TEST_F(BackupCopyTest, CopiesEveryPartitionWholeByDefault)
{
    SHOWS(KkBackup, KK_STATUS_SUCCESS,
          "every partition is copied whole by default, and the result tells how each was read");

    machine::Disk& disk = AddUsualDisk();

    ASSERT_EQ(Backup(), 0);

    ExpectSameBytes(disk, kEfiStart, kEfiStart, kEfiLength);
    ExpectSameBytes(disk, kReservedStart, kReservedStart, kReservedLength);
    ExpectSameBytes(disk, kNtfsStart, kNtfsStart, kNtfsLength);
    EXPECT_EQ(result.partitionsCopied, 3u);
    EXPECT_EQ(result.bytesCopied, kEfiLength + kReservedLength + kNtfsLength);
    EXPECT_EQ(result.liveWholeCopies, 2u);
    EXPECT_EQ(result.rawDiskCopies, 1u) << "a reserved partition has no volume";
    EXPECT_EQ(result.liveUsedBlockCopies + result.snapshotWholeCopies + result.snapshotUsedBlockCopies, 0u);
    EXPECT_EQ(result.snapshotsRequested, 0u);
    EXPECT_EQ(result.snapshotsUsed, 0u);
    EXPECT_EQ(result.reserved12, 0u);
    EXPECT_EQ(result.reserved44, 0u);
}

TEST_F(BackupCopyTest, GivesTheImageTheGeometryOfTheDisk)
{
    SHOWS(KkBackup, KK_STATUS_SUCCESS, "the image has the size and sector size of the disk, and blocks of 2 MiB");

    AddUsualDisk();

    ASSERT_EQ(Backup(), 0);

    const machine::NewImage* const shape = images->ImageShape(ImagePath());
    ASSERT_NE(shape, nullptr);
    EXPECT_EQ(shape->sizeBytes, kUsualDiskSize);
    EXPECT_EQ(shape->sectorBytes, 512u);
    EXPECT_EQ(shape->blockBytes, 2 * kMiB);
}

TEST_F(BackupCopyTest, KeepsA4096ByteSectorDiskAsItIs)
{
    SHOWS(KkBackup, KK_STATUS_SUCCESS, "a disk with sectors of 4096 bytes is kept as it is");

    machine::Disk& disk = machine.AddDisk(64 * kMiB, {.sectorSize = 4096});
    disk.Gpt({.partitions = {{.start = kMiB, .length = 16 * kMiB}, {.start = 20 * kMiB, .length = 4 * kMiB}}});
    FillPattern(disk, kMiB, 16 * kMiB, 1);
    FillPattern(disk, 20 * kMiB, 4 * kMiB, 2);

    ASSERT_EQ(Backup(), 0);

    EXPECT_EQ(images->ImageShape(ImagePath())->sectorBytes, 4096u);
    EXPECT_EQ(ImagePartitionStarts(4096), (std::vector<uint64_t>{kMiB, 20 * kMiB}));
    ExpectSameBytes(disk, kMiB, kMiB, 16 * kMiB);
    ExpectSameBytes(disk, 20 * kMiB, 20 * kMiB, 4 * kMiB);
}

TEST_F(BackupCopyTest, RoundsTheSizeUpToWholeSectors)
{
    SHOWS(KkBackup, KK_STATUS_SUCCESS,
          "the image's size is rounded up to whole sectors, the manifest tells both sizes");

    AddUsualDisk();
    machine.OnControl(
        {.code = 0x700A0},
        [](const machine::CallRecord& call, const machine::ControlRequest&) -> std::optional<machine::ControlAnswer> {
            if (call.object.find("PhysicalDrive0") == std::string::npos) {
                return std::nullopt;
            }
            kk::DiskGeometryEx geometry = {};
            geometry.bytesPerSector = 512;
            geometry.diskSize = static_cast<int64_t>(kUsualDiskSize) - 100;
            return machine::ControlAnswer{.output = machine::BytesOf(geometry)};
        });

    ASSERT_EQ(Backup(), 0);

    EXPECT_EQ(images->ImageShape(ImagePath())->sizeBytes, kUsualDiskSize);
    EXPECT_EQ(Manifest()["sourceDiskSize"], kUsualDiskSize - 100);
    EXPECT_EQ(Manifest()["virtualSize"], kUsualDiskSize);
}

TEST_F(BackupCopyTest, TakesAnyNonZeroNumberForYes)
{
    SHOWS(KkBackup, KK_STATUS_SUCCESS, "any number but 0 means yes; the result repeats the argument as it was");

    AddUsualDisk();

    ASSERT_EQ(Backup({.usedBlocksOnly = 0x80000000, .useSnapshots = 0x100}), 0);

    EXPECT_EQ(result.snapshotUsedBlockCopies, 1u);
    EXPECT_EQ(result.snapshotsRequested, 0x100u) << "a copy of the argument, not a truth value";
    EXPECT_EQ(result.snapshotsUsed, 1u);
}

TEST_F(BackupCopyTest, CopiesAVolumeOnlyUpToItsPartitionsEnd)
{
    SHOWS(KkBackup, KK_STATUS_SUCCESS,
          "a volume that is longer than its partition is copied up to the partition's end");

    machine::Disk& disk = machine.AddDisk(64 * kMiB);
    disk.Gpt({.partitions = {{.start = kMiB, .length = 4 * kMiB}, {.start = 5 * kMiB, .length = kMiB}}});
    FillPattern(disk, kMiB, 4 * kMiB, 1);
    machine.FindVolume(0, kMiB)->SetLengthInfo([](const machine::ControlRequest&) {
        return machine::ControlAnswer{.output = machine::BytesOf(int64_t{100} << 20)};
    });

    ASSERT_EQ(Backup({.partitions = {1}}), 0);

    EXPECT_EQ(result.bytesCopied, 4 * kMiB);
    ExpectSameBytes(disk, kMiB, kMiB, 4 * kMiB);
}

TEST_F(BackupCopyTest, CopiesAShorterVolumeOnlyAsFarAsItGoes)
{
    SHOWS(KkBackup, KK_STATUS_SUCCESS, "a volume that is shorter than its partition is copied as far as it goes");

    machine::Disk& disk = machine.AddDisk(64 * kMiB);
    disk.Gpt({.partitions = {{.start = kMiB, .length = 4 * kMiB}}});
    FillPattern(disk, kMiB, 4 * kMiB, 1);
    machine.FindVolume(0, kMiB)->SetLengthInfo([](const machine::ControlRequest&) {
        return machine::ControlAnswer{.output = machine::BytesOf(int64_t{3} << 20)};
    });

    ASSERT_EQ(Backup(), 0);

    EXPECT_EQ(result.bytesCopied, 3 * kMiB);
    EXPECT_FALSE(Image()->Written().Intersects(4 * kMiB, kMiB));
}

TEST_F(BackupCopyTest, CopiesThePartitionsLengthWhenTheVolumeDoesNotTellItsOwn)
{
    SHOWS(KkBackup, KK_STATUS_SUCCESS, "a volume that does not tell its length is copied for the partition's");

    machine::Disk& disk = machine.AddDisk(64 * kMiB);
    disk.Gpt({.partitions = {{.start = kMiB, .length = 4 * kMiB}}});
    machine.FindVolume(0, kMiB)->SetLengthInfo(
        [](const machine::ControlRequest&) { return machine::ControlAnswer{.status = Status(0xC0000010)}; });

    ASSERT_EQ(Backup(), 0);

    EXPECT_EQ(result.bytesCopied, 4 * kMiB);
}

TEST_F(BackupCopyTest, FallsBackToTheRawDiskWhenTheVolumeDoesNotOpenAgain)
{
    SHOWS(KkBackup, KK_STATUS_SUCCESS, "a volume that does not open is read from the raw disk, whole");

    machine::Disk& disk = AddUsualDisk();
    // The first open is the search for the volume, the second the one for the copy.
    machine.faults.Fail({.kind = CallKind::CreateFile, .object = "HarddiskVolume2"}, 2, 0xC0000022);

    ASSERT_EQ(Backup({.partitions = {3}, .usedBlocksOnly = 1}), 0);

    EXPECT_EQ(result.rawDiskCopies, 1u);
    EXPECT_EQ(result.liveUsedBlockCopies, 0u);
    ExpectSameBytes(disk, kNtfsStart, kNtfsStart, kNtfsLength);
}

TEST_F(BackupCopyTest, DoesNotChangeTheSourceDisk)
{
    SHOWS(KkBackup, KK_STATUS_SUCCESS, "the source disk is not written, nor opened for writing");

    machine::Disk& disk = AddUsualDisk();
    const std::vector<uint8_t> before = disk.ReadBytes(0, kUsualDiskSize);

    ASSERT_EQ(Backup({.usedBlocksOnly = 1, .useSnapshots = 1}), 0);

    EXPECT_TRUE(disk.ReadBytes(0, kUsualDiskSize) == before);
    EXPECT_EQ(machine.journal.Count({.kind = CallKind::WriteFile, .object = "PhysicalDrive0"}), 0u);
    for (const machine::CallRecord& open : machine.journal.FindAll({.kind = CallKind::CreateFile})) {
        const bool writable = (open.access & 2) != 0;
        EXPECT_EQ(writable, open.object.find("PhysicalDrive1") != std::string::npos ||
                                open.object.find(".json") != std::string::npos)
            << open;
    }
}

TEST_F(BackupCopyTest, EndsAtTheFileSystemsEndWhereTheSystemKeepsThatBoundary)
{
    SHOWS(KkBackup, KK_STATUS_END_OF_FILE,
          "a mounted NTFS volume copied whole where the system ends it a sector early; no manifest");

    AddUsualDisk();
    machine.Strict();

    // The volume is as long as its partition, but the system lets a reader go no further than the file system, which
    // is one sector shorter.
    EXPECT_EQ(Backup({.partitions = {3}}), KK_STATUS_END_OF_FILE);
    EXPECT_TRUE(ResultIsUntouched());
    EXPECT_FALSE(HasManifest());
}

TEST_F(BackupCopyTest, WorksWithoutAResultRecord)
{
    SHOWS(KkBackup, KK_STATUS_SUCCESS, "the result need not be asked for");

    AddUsualDisk();

    EXPECT_EQ(api.backup(0, WindowsPath(ImagePath()).c_str(), nullptr, 0, 0, 0, 0, nullptr, 0, 1, 0, nullptr), 0);

    EXPECT_TRUE(HasManifest());
}

}  // namespace
