#include <algorithm>

#include "exports/support/backup_test.h"

namespace {

using machine::CallKind;

class BackupSnapshotTest : public BackupTest {
protected:
    /// `count` small partitions, each with a volume that holds a pattern of its own.
    machine::Disk& AddManyVolumes(uint32_t count)
    {
        machine::Disk& disk = machine.AddDisk(64 * kMiB);
        machine::GptTable table;
        for (uint32_t i = 0; i < count; ++i) {
            table.partitions.push_back({.start = (1 + i) * kMiB, .length = kMiB});
        }
        disk.Gpt(table);
        for (uint32_t i = 0; i < count; ++i) {
            FillPattern(disk, (1 + i) * kMiB, kMiB, static_cast<uint8_t>(i));
        }
        return disk;
    }
};

TEST_F(BackupSnapshotTest, ReadsVolumesFromTheirSnapshots)
{
    SHOWS(KkBackup, KK_STATUS_SUCCESS,
          "volumes are read from their snapshots; what is written later is not in the image");

    machine::Disk& disk = AddUsualDisk();
    const std::vector<uint8_t> before = disk.ReadBytes(kNtfsStart, kNtfsLength);
    snapshots.OnSnapshotTaken([&] { FillPattern(disk, kNtfsStart + 8 * kMiB, 4 * kMiB, 99); });

    ASSERT_EQ(Backup({.useSnapshots = 1}), 0);

    EXPECT_TRUE(ImageBytes(kNtfsStart, kNtfsLength) == before) << "what was written afterwards is not in the image";
    EXPECT_EQ(result.snapshotsRequested, 1u);
    EXPECT_EQ(result.snapshotsUsed, 1u);
    EXPECT_EQ(result.snapshotWholeCopies, 2u);
    EXPECT_EQ(result.rawDiskCopies, 1u);
    EXPECT_EQ(result.liveWholeCopies, 0u);
    EXPECT_EQ(Manifest()["usedVss"], true);
}

TEST_F(BackupSnapshotTest, TakesTheListOfUsedClustersFromTheSnapshotToo)
{
    SHOWS(KkBackup, KK_STATUS_SUCCESS, "the clusters in use are those of the snapshot");

    AddUsualDisk();

    ASSERT_EQ(Backup({.usedBlocksOnly = 1, .useSnapshots = 1}), 0);

    EXPECT_EQ(result.snapshotUsedBlockCopies, 1u);
    EXPECT_EQ(result.snapshotWholeCopies, 1u);
    for (const machine::CallRecord& request : machine.journal.FindAll({.code = 0x9006F})) {
        EXPECT_NE(request.object.find("HarddiskVolumeShadowCopy"), std::string::npos) << request;
    }
    EXPECT_GT(machine.journal.Count({.code = 0x9006F}), 0u);
}

TEST_F(BackupSnapshotTest, DoesNotTouchTheServiceUnlessAsked)
{
    SHOWS(KkBackup, KK_STATUS_SUCCESS, "the snapshot service is not touched unless asked for");

    AddUsualDisk();

    ASSERT_EQ(Backup(), 0);

    EXPECT_EQ(machine.journal.Count({.object = "vssapi.dll"}), 0u);
    EXPECT_EQ(machine.journal.Count({.object = "ole32.dll"}), 0u);
    EXPECT_EQ(machine.journal.Count({.kind = CallKind::ComMethod}), 0u);
    // The one lookup is the drive letter of each of the two volumes, for the manifest.
    EXPECT_EQ(machine.journal.Count({.kind = CallKind::CreateFile, .object = "MountPointManager"}), 2u);
    EXPECT_EQ(Manifest()["usedVss"], false);
}

TEST_F(BackupSnapshotTest, AsksForNoSnapshotsWhenNoVolumeHasAName)
{
    SHOWS(KkBackup, KK_STATUS_SUCCESS, "no snapshots are asked for when no chosen partition has a volume");

    AddUsualDisk();

    ASSERT_EQ(Backup({.partitions = {2}, .useSnapshots = 1}), 0);

    EXPECT_EQ(machine.journal.Count({.name = "CoInitializeEx"}), 0u);
    EXPECT_EQ(result.snapshotsRequested, 1u);
    EXPECT_EQ(result.snapshotsUsed, 0u);
}

TEST_F(BackupSnapshotTest, SnapshotsTheFirstSixteenVolumesAndReadsTheOthersLive)
{
    SHOWS(KkBackup, KK_STATUS_SUCCESS, "the first 16 volumes get snapshots, further ones are read live");

    machine::Disk& disk = AddManyVolumes(18);

    ASSERT_EQ(Backup({.useSnapshots = 1}), 0);

    EXPECT_EQ(machine.journal.Count({.name = "IVssBackupComponents::AddToSnapshotSet"}), 16u);
    EXPECT_EQ(result.snapshotWholeCopies, 16u);
    EXPECT_EQ(result.liveWholeCopies, 2u);
    ExpectSameBytes(disk, kMiB, kMiB, 18 * kMiB);
}

TEST_F(BackupSnapshotTest, CountsTheSixteenInTheOrderOfThePackedImage)
{
    SHOWS(KkBackup, KK_STATUS_SUCCESS, "in a packed image the first 16 are counted in the image's order");

    machine::Disk& disk = machine.AddDisk(64 * kMiB);
    machine::GptTable table;
    for (uint32_t i = 0; i < 17; ++i) {
        table.partitions.push_back({.start = (40 - i) * kMiB, .length = kMiB});
    }
    disk.Gpt(table);
    const std::u16string last = machine.FindVolume(0, 40 * kMiB)->Path();

    ASSERT_EQ(Backup({.useSnapshots = 1, .compact = 1}), 0);

    const std::string lastName(last.begin(), last.end());
    EXPECT_EQ(machine.journal.Count({.name = "IVssBackupComponents::AddToSnapshotSet"}), 16u);
    EXPECT_EQ(machine.journal.Count({.name = "IVssBackupComponents::AddToSnapshotSet", .object = lastName}), 0u);
    EXPECT_EQ(result.liveWholeCopies, 1u);
}

TEST_F(BackupSnapshotTest, ReadsAVolumeLiveWhoseSnapshotHasNoDevice)
{
    SHOWS(KkBackup, KK_STATUS_SUCCESS, "a volume whose snapshot has no device is read live");

    AddUsualDisk();
    snapshots.OmitDeviceName(*machine.FindVolume(0, kNtfsStart));

    ASSERT_EQ(Backup({.useSnapshots = 1}), 0);

    EXPECT_EQ(result.snapshotsUsed, 1u);
    EXPECT_EQ(result.snapshotWholeCopies, 1u);
    EXPECT_EQ(result.liveWholeCopies, 1u);
}

TEST_F(BackupSnapshotTest, GoesToTheRawDiskAndNotToTheLiveVolumeWhenASnapshotDoesNotOpen)
{
    SHOWS(KkBackup, KK_STATUS_SUCCESS, "when a snapshot does not open the raw disk is read and not the live volume");

    machine::Disk& disk = AddUsualDisk();
    machine.faults.FailFrom({.kind = CallKind::CreateFile, .object = "ShadowCopy2"}, 1, 0xC0000022);

    ASSERT_EQ(Backup({.useSnapshots = 1}), 0);

    EXPECT_EQ(result.rawDiskCopies, 2u);
    EXPECT_EQ(result.liveWholeCopies, 0u);
    ExpectSameBytes(disk, kNtfsStart, kNtfsStart, kNtfsLength);
}

TEST_F(BackupSnapshotTest, ReadsLiveVolumesWhenTheServiceIsMissing)
{
    SHOWS(KkBackup, KK_STATUS_SUCCESS, "without the snapshot service volumes are read live");

    machine.modules.Remove(u"vssapi.dll");
    AddUsualDisk();

    ASSERT_EQ(Backup({.useSnapshots = 1}), 0);

    EXPECT_EQ(result.snapshotsUsed, 0u);
    EXPECT_EQ(result.liveWholeCopies, 2u);
    EXPECT_EQ(Manifest()["usedVss"], false);
}

TEST_F(BackupSnapshotTest, ReadsLiveVolumesWhenASnapshotCannotBeTaken)
{
    SHOWS(KkBackup, KK_STATUS_SUCCESS, "when snapshots cannot be taken volumes are read live");

    AddUsualDisk();
    snapshots.Operation("DoSnapshotSet").reported = Status(0x8004231F);

    ASSERT_EQ(Backup({.useSnapshots = 1}), 0);

    EXPECT_EQ(result.snapshotsRequested, 1u);
    EXPECT_EQ(result.snapshotsUsed, 0u);
    EXPECT_EQ(result.liveWholeCopies, 2u);
}

TEST_F(BackupSnapshotTest, DoesNotCountSnapshotsThatSucceededWithoutAnObject)
{
    SHOWS(KkBackup, KK_STATUS_SUCCESS, "a service that succeeds without giving an object counts as no snapshots");

    AddUsualDisk();
    snapshots.creation = {.result = 1, .givesObject = false};

    ASSERT_EQ(Backup({.useSnapshots = 1}), 0);

    EXPECT_EQ(result.snapshotsUsed, 0u);
    EXPECT_EQ(result.liveWholeCopies, 2u);
}

TEST_F(BackupSnapshotTest, KeepsTheSnapshotsUntilTheManifestIsWrittenAndTheImageClosed)
{
    SHOWS(KkBackup, KK_STATUS_SUCCESS, "snapshots are kept until the manifest is written and the image closed");

    AddUsualDisk();

    ASSERT_EQ(Backup({.useSnapshots = 1}), 0);

    const machine::CallRecord* const release = machine.journal.Last({.name = "IVssBackupComponents::Release"});
    ASSERT_NE(release, nullptr);
    const machine::CallRecord* const manifest = machine.journal.Last({.kind = CallKind::WriteFile, .object = ".json"});
    ASSERT_NE(manifest, nullptr);
    EXPECT_LT(manifest->index, release->index);
    const machine::CallRecord* const close = machine.journal.Last({.kind = CallKind::Close});
    EXPECT_LT(close->index, release->index) << "the image's handle is closed before";
    EXPECT_EQ(machine.journal.Last({.name = "CoUninitialize"})->index, release->index + 1);
}

TEST_F(BackupSnapshotTest, TakesTheSnapshotsBeforeItMakesTheImage)
{
    SHOWS(KkBackup, KK_STATUS_SUCCESS, "snapshots are taken before the image is made");

    AddUsualDisk();

    ASSERT_EQ(Backup({.useSnapshots = 1}), 0);

    EXPECT_LT(machine.journal.Last({.name = "IVssBackupComponents::GetSnapshotProperties"})->index,
              machine.journal.First({.name = "CreateVirtualDisk"})->index);
}

TEST_F(BackupSnapshotTest, ReleasesTheSnapshotsWhenTheImageCannotBeMade)
{
    SHOWS(KkBackup, KK_STATUS_UNSUCCESSFUL, "the image cannot be made; the snapshots are released");

    AddUsualDisk();
    machine.faults.Fail({.name = "CreateVirtualDisk"}, 1, 112);

    EXPECT_EQ(Backup({.useSnapshots = 1}), KK_STATUS_UNSUCCESSFUL);

    EXPECT_EQ(machine.journal.Count({.name = "IVssBackupComponents::Release"}), 1u);
    EXPECT_TRUE(snapshots.Snapshots().empty());
}

}  // namespace
