#include <array>

#include "exports/support/backup_test.h"
#include "machine/ntfs_reader.h"

// What KkBackup copies of a volume when it is to copy clusters in use alone.

namespace {

using machine::FileSystem;

class BackupUsedClustersTest : public BackupTest {
protected:
    /// The volume that begins there tells of so many clusters, in use where their bits are set.
    void AnswerBitmap(uint64_t start, int64_t clusters, const std::vector<uint8_t>& bits)
    {
        std::vector<uint8_t> answer = machine::BytesOf(std::array<int64_t, 2>{0, clusters});
        answer.insert(answer.end(), bits.begin(), bits.end());
        machine.FindVolume(0, start)->SetBitmapAnswer(
            [answer](const machine::ControlRequest&) { return machine::ControlAnswer{.output = answer}; });
    }
};

TEST_F(BackupUsedClustersTest, CopiesOnlyTheClustersThatNtfsHasInUse)
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

TEST_F(BackupUsedClustersTest, FallsBackToTheRawDiskWhenTheUsedClustersCannotBeLearnt)
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

TEST_F(BackupUsedClustersTest, ClipsClustersBeyondThePartitionsEnd)
{
    SHOWS(KkBackup, KK_STATUS_SUCCESS, "clusters beyond the partition's end are not copied");

    machine::Disk& disk = AddUsualDisk();
    // The partition has room for 5120 of 4 KiB.
    AnswerBitmap(kNtfsStart, 5200, std::vector<uint8_t>(650, 0xFF));

    ASSERT_EQ(Backup({.partitions = {3}, .usedBlocksOnly = 1}), 0);

    EXPECT_EQ(result.bytesCopied, kNtfsLength);
    ExpectSameBytes(disk, kNtfsStart, kNtfsStart, kNtfsLength);
    EXPECT_FALSE(Image()->Written().Intersects(kNtfsStart + kNtfsLength, 3 * kMiB));
}

TEST_F(BackupUsedClustersTest, LeavesOutARunThatBeginsBeyondThePartition)
{
    SHOWS(KkBackup, KK_STATUS_SUCCESS, "runs of clusters that begin beyond the partition's end are left out");

    AddUsualDisk();
    std::vector<uint8_t> bits(750);
    bits[0] = 0x01;    // cluster 0
    bits[700] = 0x01;  // cluster 5600, beyond the 5120 of the partition
    AnswerBitmap(kNtfsStart, 6000, bits);

    ASSERT_EQ(Backup({.partitions = {3}, .usedBlocksOnly = 1}), 0);

    EXPECT_EQ(result.bytesCopied, 4096u);
    EXPECT_EQ(result.liveUsedBlockCopies, 1u);
}

TEST_F(BackupUsedClustersTest, CountsAVolumeWithNothingInUseAsCopied)
{
    SHOWS(KkBackup, KK_STATUS_SUCCESS, "a volume with nothing in use counts as copied");

    AddUsualDisk();
    AnswerBitmap(kNtfsStart, 5000, std::vector<uint8_t>(625));

    ASSERT_EQ(Backup({.partitions = {3}, .usedBlocksOnly = 1}), 0);

    EXPECT_EQ(result.bytesCopied, 0u);
    EXPECT_EQ(result.liveUsedBlockCopies, 1u);
    EXPECT_EQ(result.partitionsCopied, 1u);
    EXPECT_FALSE(Image()->Written().Intersects(kNtfsStart, kNtfsLength));
}

TEST_F(BackupUsedClustersTest, SplitsALongRunIntoTransfers)
{
    SHOWS(KkBackup, KK_STATUS_SUCCESS, "long runs of clusters are split into pieces of 8 MiB");

    machine::Disk& disk = machine.AddDisk(64 * kMiB);
    disk.Gpt({.partitions = {{.start = kMiB, .length = 32 * kMiB}}});
    disk.Format(kMiB, 32 * kMiB, FileSystem::Ntfs);
    AnswerBitmap(kMiB, 8191, std::vector<uint8_t>(1024, 0xFF));

    ASSERT_EQ(Backup({.usedBlocksOnly = 1}), 0);

    std::vector<uint64_t> data(Image()->WriteSizes().begin() + 5, Image()->WriteSizes().end());
    EXPECT_EQ(data, (std::vector<uint64_t>{kTransfer, kTransfer, kTransfer, kTransfer - 4096}));
}

TEST_F(BackupUsedClustersTest, StaysInsideTheFileSystemWithUsedBlocksOnly)
{
    SHOWS(KkBackup, KK_STATUS_SUCCESS,
          "clusters in use are copied also where the system ends the volume a sector early");

    AddUsualDisk();
    machine.Strict();

    EXPECT_EQ(Backup({.partitions = {3}, .usedBlocksOnly = 1}), 0);
}

}  // namespace
