#include <algorithm>
#include <array>

#include "backup/backup_plan.h"
#include "backup/image_partition_table.h"
#include "exports/support/backup_test.h"
#include "machine/ntfs_reader.h"

namespace {

using machine::CallKind;
using machine::FileSystem;

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

TEST_F(BackupCopyTest, CopiesOnlyTheClustersThatNtfsHasInUse)
{
    SHOWS(KkBackup, KK_STATUS_SUCCESS,
          "clusters that NTFS has in use are copied, others are not; other file systems are copied whole");

    machine::Disk& disk = AddUsualDisk();
    machine::Volume& volume = *machine.FindVolume(0, kNtfsStart);
    machine::NtfsReader ntfs(volume);
    ASSERT_TRUE(ntfs.Open());
    const machine::NtfsGeometry geometry = ntfs.Geometry();
    std::vector<uint8_t> bitmap((geometry.totalClusters + 7) / 8);
    ASSERT_TRUE(ntfs.ReadBitmap(0, bitmap));

    ASSERT_EQ(Backup({.usedBlocksOnly = 1}), 0);

    uint64_t used = 0;
    for (uint64_t cluster = 0; cluster < geometry.totalClusters; ++cluster) {
        const uint64_t offset = kNtfsStart + cluster * geometry.bytesPerCluster;
        const bool inUse = (bitmap[cluster / 8] >> (cluster % 8) & 1) != 0;
        used += inUse ? 1 : 0;
        ASSERT_EQ(Image()->Written().Intersects(offset, geometry.bytesPerCluster), inUse) << "cluster " << cluster;
        if (inUse) {
            ASSERT_EQ(disk.ReadBytes(offset, geometry.bytesPerCluster), ImageBytes(offset, geometry.bytesPerCluster));
        }
    }
    EXPECT_EQ(result.liveUsedBlockCopies, 1u);
    EXPECT_EQ(result.liveWholeCopies, 1u) << "FAT is copied whole all the same";
    EXPECT_EQ(result.rawDiskCopies, 1u);
    EXPECT_EQ(result.bytesCopied, kEfiLength + kReservedLength + used * geometry.bytesPerCluster);
    EXPECT_LT(used, geometry.totalClusters);
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

TEST_F(BackupCopyTest, MovesEightMebibytesAtATimeThroughOneBuffer)
{
    SHOWS(KkBackup, KK_STATUS_SUCCESS, "data goes through one buffer of 8 MiB");

    machine::Disk& disk = machine.AddDisk(64 * kMiB);
    disk.Gpt({.partitions = {{.start = kMiB, .length = 20 * kMiB + 512}}});
    FillPattern(disk, kMiB, 20 * kMiB + 512, 3);
    machine.HideVolume(*machine.FindVolume(0, kMiB));

    ASSERT_EQ(Backup(), 0);

    std::vector<uint64_t> reads;
    for (const machine::CallRecord& call : machine.journal.FindAll({.kind = CallKind::ReadFile})) {
        EXPECT_EQ(call.object, "\\??\\PhysicalDrive0");
        reads.push_back(call.length);
    }
    EXPECT_EQ(reads, (std::vector<uint64_t>{kTransfer, kTransfer, 4 * kMiB + 512}));
    EXPECT_EQ(Image()->WriteSizes(),
              (std::vector<uint64_t>{512, 512, 16384, 16384, 512, kTransfer, kTransfer, 4 * kMiB + 512}));
    EXPECT_EQ(std::ranges::count(machine.heap.Sizes(), kTransfer), 1);
    EXPECT_EQ(machine.heap.LiveBlocks(), 0u);
    EXPECT_LT(machine.heap.PeakBytes(), kTransfer + 64 * kKiB);
}

TEST_F(BackupCopyTest, AllocatesNothingButWhatItNeeds)
{
    SHOWS(KkBackup, KK_STATUS_SUCCESS, "it allocates only what it needs and frees all of it");

    machine.AddDisk(64 * kMiB).Gpt({.partitions = {{.start = kMiB, .length = 20 * kMiB}}});
    machine.HideVolume(*machine.FindVolume(0, kMiB));

    ASSERT_EQ(Backup(), 0);

    constexpr uint64_t deviceObject = 16;
    std::vector<uint64_t> expected = {deviceObject,                    // the source, for its layout
                                      18624,                           // the layout's answer
                                      8 * sizeof(kk::PartitionEntry),  // the partitions
                                      8 * sizeof(kk::BackupPlanEntry),
                                      deviceObject,  // the image's disk
                                      deviceObject,  // the source, for its data
                                      8 * sizeof(kk::GptImageEntry),
                                      16384,  // the table's entries
                                      512,    // its other sectors
                                      kTransfer,
                                      8,   // the manifest's first byte
                                      8};  // and its open containers
    // The manifest's text doubles until it fits.
    for (uint64_t size = 16; size / 2 <= ReadFile(ManifestPath()).size(); size *= 2) {
        expected.push_back(size);
    }
    EXPECT_EQ(machine.heap.Sizes(), expected);
}

TEST_F(BackupCopyTest, ReadsEachTransferBeforeItWritesIt)
{
    SHOWS(KkBackup, KK_STATUS_SUCCESS, "each piece is read before it is written");

    machine::Disk& disk = machine.AddDisk(32 * kMiB);
    disk.Gpt({.partitions = {{.start = kMiB, .length = 16 * kMiB}}});

    ASSERT_EQ(Backup(), 0);

    std::string order;
    for (const machine::CallRecord& call : machine.journal.Records()) {
        if (call.length == kTransfer && (call.kind == CallKind::ReadFile || call.kind == CallKind::WriteFile)) {
            order += call.kind == CallKind::ReadFile ? 'r' : 'w';
        }
    }
    EXPECT_EQ(order, "rwrw");
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

TEST_F(BackupCopyTest, FallsBackToTheRawDiskWhenTheUsedClustersCannotBeLearnt)
{
    SHOWS(KkBackup, KK_STATUS_SUCCESS,
          "a volume that does not tell its clusters in use is read from the raw disk, whole");

    machine::Disk& disk = AddUsualDisk();
    machine.faults.FailFrom({.code = 0x9006F}, 1, 0xC0000010);

    ASSERT_EQ(Backup({.usedBlocksOnly = 1}), 0);

    EXPECT_EQ(result.rawDiskCopies, 2u);
    EXPECT_EQ(result.liveWholeCopies, 1u);
    ExpectSameBytes(disk, kNtfsStart, kNtfsStart, kNtfsLength);
}

TEST_F(BackupCopyTest, ClipsClustersBeyondThePartitionsEnd)
{
    SHOWS(KkBackup, KK_STATUS_SUCCESS, "clusters beyond the partition's end are not copied");

    machine::Disk& disk = AddUsualDisk();
    machine.FindVolume(0, kNtfsStart)->SetBitmapAnswer([](const machine::ControlRequest&) {
        // Every one of 5200 clusters in use, of which the partition has room for 5120 of 4 KiB.
        std::vector<uint8_t> answer = machine::BytesOf(std::array<int64_t, 2>{0, 5200});
        answer.resize(16 + 650, 0xFF);
        return machine::ControlAnswer{.output = answer};
    });

    ASSERT_EQ(Backup({.partitions = {3}, .usedBlocksOnly = 1}), 0);

    EXPECT_EQ(result.bytesCopied, kNtfsLength);
    ExpectSameBytes(disk, kNtfsStart, kNtfsStart, kNtfsLength);
    EXPECT_FALSE(Image()->Written().Intersects(kNtfsStart + kNtfsLength, 3 * kMiB));
}

TEST_F(BackupCopyTest, LeavesOutARunThatBeginsBeyondThePartition)
{
    SHOWS(KkBackup, KK_STATUS_SUCCESS, "runs of clusters that begin beyond the partition's end are left out");

    AddUsualDisk();
    machine.FindVolume(0, kNtfsStart)->SetBitmapAnswer([](const machine::ControlRequest&) {
        std::vector<uint8_t> answer = machine::BytesOf(std::array<int64_t, 2>{0, 6000});
        answer.resize(16 + 750, 0x00);
        answer[16] = 0x01;        // cluster 0
        answer[16 + 700] = 0x01;  // cluster 5600, beyond the 5120 of the partition
        return machine::ControlAnswer{.output = answer};
    });

    ASSERT_EQ(Backup({.partitions = {3}, .usedBlocksOnly = 1}), 0);

    EXPECT_EQ(result.bytesCopied, 4096u);
    EXPECT_EQ(result.liveUsedBlockCopies, 1u);
}

TEST_F(BackupCopyTest, CountsAVolumeWithNothingInUseAsCopied)
{
    SHOWS(KkBackup, KK_STATUS_SUCCESS, "a volume with nothing in use counts as copied");

    AddUsualDisk();
    machine.FindVolume(0, kNtfsStart)->SetBitmapAnswer([](const machine::ControlRequest&) {
        std::vector<uint8_t> answer = machine::BytesOf(std::array<int64_t, 2>{0, 5000});
        answer.resize(16 + 625, 0x00);
        return machine::ControlAnswer{.output = answer};
    });

    ASSERT_EQ(Backup({.partitions = {3}, .usedBlocksOnly = 1}), 0);

    EXPECT_EQ(result.bytesCopied, 0u);
    EXPECT_EQ(result.liveUsedBlockCopies, 1u);
    EXPECT_EQ(result.partitionsCopied, 1u);
    EXPECT_FALSE(Image()->Written().Intersects(kNtfsStart, kNtfsLength));
}

TEST_F(BackupCopyTest, SplitsALongRunIntoTransfers)
{
    SHOWS(KkBackup, KK_STATUS_SUCCESS, "long runs of clusters are split into pieces of 8 MiB");

    machine::Disk& disk = machine.AddDisk(64 * kMiB);
    disk.Gpt({.partitions = {{.start = kMiB, .length = 32 * kMiB}}});
    disk.Format(kMiB, 32 * kMiB, FileSystem::Ntfs);
    machine.FindVolume(0, kMiB)->SetBitmapAnswer([](const machine::ControlRequest&) {
        std::vector<uint8_t> answer = machine::BytesOf(std::array<int64_t, 2>{0, 8191});
        answer.resize(16 + 1024, 0xFF);
        return machine::ControlAnswer{.output = answer};
    });

    ASSERT_EQ(Backup({.usedBlocksOnly = 1}), 0);

    std::vector<uint64_t> data(Image()->WriteSizes().begin() + 5, Image()->WriteSizes().end());
    EXPECT_EQ(data, (std::vector<uint64_t>{kTransfer, kTransfer, kTransfer, kTransfer - 4096}));
}

TEST_F(BackupCopyTest, FlushesOnceAfterTheLastPartitionAndOnceAfterTheTable)
{
    SHOWS(KkBackup, KK_STATUS_SUCCESS,
          "the image is flushed after the table and after the last partition, before it is detached");

    AddUsualDisk();

    ASSERT_EQ(Backup(), 0);

    const std::vector<machine::CallRecord> flushes = machine.journal.FindAll({.kind = CallKind::Flush});
    ASSERT_EQ(flushes.size(), 2u);
    EXPECT_LT(flushes[0].index, machine.journal.First({.kind = CallKind::ReadFile})->index);
    EXPECT_GT(flushes[1].index, machine.journal.Last({.kind = CallKind::WriteFile, .object = "PhysicalDrive1"})->index);
    EXPECT_LT(flushes[1].index, machine.journal.First({.name = "DetachVirtualDisk"})->index);
}

TEST_F(BackupCopyTest, MovesNothingElseThanTheTableAndTheData)
{
    SHOWS(KkBackup, KK_STATUS_SUCCESS, "nothing but the table and the data is written");

    AddUsualDisk();

    ASSERT_EQ(Backup(), 0);

    const uint64_t table = 512 + 512 + 16384 + 16384 + 512;
    uint64_t written = 0;
    for (const uint64_t size : Image()->WriteSizes()) {
        EXPECT_LE(size, kTransfer);
        written += size;
    }
    EXPECT_EQ(written, table + result.bytesCopied);
    // 34 MiB in 5 transfers, 2 MiB in one, 20 MiB in 3.
    EXPECT_EQ(machine.journal.Count({.kind = CallKind::ReadFile}), 9u);
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

TEST_F(BackupCopyTest, StaysInsideTheFileSystemWithUsedBlocksOnly)
{
    SHOWS(KkBackup, KK_STATUS_SUCCESS,
          "clusters in use are copied also where the system ends the volume a sector early");

    AddUsualDisk();
    machine.Strict();

    EXPECT_EQ(Backup({.partitions = {3}, .usedBlocksOnly = 1}), 0);
}

TEST_F(BackupCopyTest, WorksWithoutAResultRecord)
{
    SHOWS(KkBackup, KK_STATUS_SUCCESS, "the result need not be asked for");

    AddUsualDisk();

    EXPECT_EQ(api.backup(0, WindowsPath(ImagePath()).c_str(), nullptr, 0, 0, 0, 0, nullptr, 0, 1, 0, nullptr), 0);

    EXPECT_TRUE(HasManifest());
}

}  // namespace
