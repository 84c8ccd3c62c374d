#include "exports/support/backup_test.h"

namespace {

using BackupSingleSnapshotTest = BackupTest;

TEST_F(BackupSingleSnapshotTest, OneVolumeIsEnoughForASnapshot)
{
    SHOWS(KkBackup, KK_STATUS_SUCCESS,
          "a snapshot of a single volume is read, and what is written afterwards is not "
          "in the image");

    machine::Disk& disk = AddUsualDisk();
    const std::vector<uint8_t> before = disk.ReadBytes(kNtfsStart, kNtfsLength);
    snapshots.OnSnapshotTaken([&] { FillPattern(disk, kNtfsStart + 8 * kMiB, 4 * kMiB, 99); });

    ASSERT_EQ(Backup({.partitions = {3}, .useSnapshots = 1}), 0);

    EXPECT_TRUE(ImageBytes(kNtfsStart, kNtfsLength) == before) << "what was written afterwards is not in the image";
    EXPECT_EQ(result.snapshotsUsed, 1u);
    EXPECT_EQ(result.snapshotWholeCopies, 1u);
    EXPECT_EQ(result.liveWholeCopies, 0u);
}

}  // namespace
