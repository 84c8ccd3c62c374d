#include <cstring>

#include "exports/support/backup_test.h"
#include "exports/support/partition_edit_test.h"
#include "exports/support/restore_test.h"
#include "exports/support/short_transfers.h"
#include "machine/kestrelkit_api.h"

// Reads and writes that move fewer bytes than they were asked to.

namespace {

constexpr uint64_t kSize = 7 << 20;

class EditShortTransferSweepTest : public PartitionEditTest {
protected:
    void Sweep(const std::function<int32_t()>& edit)
    {
        for (const DiskKind& kind : kDiskKinds) {
            SCOPED_TRACE(kind);
            const uint64_t cut = SweepShortTransfers(machine, {.prepare = [&] { AddPartitions(kind); },
                                                               .run = edit,
                                                               .result = [&] { return Table(kind); },
                                                               .sectorSize = kind.sectorSize});
            EXPECT_EQ(cut, kind.table == TableKind::Mbr ? 8u : 44u);
        }
    }

private:
    std::vector<uint8_t> Table(const DiskKind& kind) const
    {
        const TableSectors table(kind, kSize);
        std::vector<uint8_t> bytes;
        for (const Place& place : {table.primaryArray, table.primaryHeader, table.backupArray, table.backupHeader}) {
            const std::vector<uint8_t> part = TheDisk().ReadBytes(place.start, place.length);
            bytes.insert(bytes.end(), part.begin(), part.end());
        }
        return bytes;
    }

    void AddPartitions(const DiskKind& kind)
    {
        machine::Disk& disk = AddDisk(kind, {{kMiB, 3 * kMiB}, {4 * kMiB, kMiB}}, kSize);
        if (kind.table == TableKind::Gpt) {
            // So far behind in the array that a part of it is not enough.
            disk.Gpt({.partitions = {{.start = kMiB, .length = 3 * kMiB, .slot = 126},
                                     {.start = 4 * kMiB, .length = kMiB, .slot = 127}}});
        }
        // Volumes of new disks get higher and higher numbers, and few are looked at.
        machine.SetVolumeNumber(*machine.FindVolume(0, kMiB), 1);
        machine.SetVolumeNumber(*machine.FindVolume(0, 4 * kMiB), 2);
    }
};

TEST_F(EditShortTransferSweepTest, Creating)
{
    SHOWS(KkCreatePartition, KK_STATUS_SUCCESS,
          "transfers that move fewer bytes than asked are continued, and the "
          "table is the same");

    Sweep([this] { return Create(5 * kMiB, kMiB); });
}

TEST_F(EditShortTransferSweepTest, Deleting)
{
    SHOWS(KkDeletePartition, KK_STATUS_SUCCESS,
          "transfers that move fewer bytes than asked are continued, and the "
          "table is the same");

    Sweep([this] { return Delete(4 * kMiB); });
}

TEST_F(EditShortTransferSweepTest, Shrinking)
{
    SHOWS(KkShrinkPartition, KK_STATUS_SUCCESS,
          "transfers that move fewer bytes than asked are continued, and the "
          "table is the same");

    Sweep([this] { return Shrink(kMiB, kMiB); });
}

class RestoreShortTransferSweepTest : public RestoreTest {
protected:
    static constexpr uint64_t kSmallSize = 4 * kMiB;
    static constexpr Place kFirst = {kMiB, 512 * kKiB};
    static constexpr Place kSecond = {kMiB + 512 * kKiB, 512 * kKiB};
    static constexpr Place kThird = {2 * kMiB, kMiB};

    RestoreShortTransferSweepTest() { MakeImage(kSmallGpt, {kFirst, kSecond}, kSmallSize); }

    uint64_t Sweep(const std::vector<Place>& partitions, const std::function<int32_t()>& restore)
    {
        return SweepShortTransfers(
            machine,
            {.prepare =
                 [&] {
                     AddTarget(kSmallGpt, partitions, kSmallSize).WriteBytes(kSecond.start, Pattern(kSecond.length, 7));
                 },
             .run = restore,
             .result = [this] { return Target().ReadBytes(0, kSmallSize); }});
    }
};

TEST_F(RestoreShortTransferSweepTest, ADiskWithItsTable)
{
    SHOWS(KkRestorePartitions, KK_STATUS_SUCCESS,
          "transfers that move fewer bytes than asked are continued, and the "
          "disk is the same");

    EXPECT_GT(Sweep({kFirst}, [this] { return RestorePartitions({1, 2}, 1); }), 80u);
}

TEST_F(RestoreShortTransferSweepTest, FreeSpace)
{
    SHOWS(KkRestoreToFreeSpace, KK_STATUS_SUCCESS,
          "transfers that move fewer bytes than asked are continued, and the "
          "disk is the same");

    EXPECT_GT(Sweep({kFirst}, [this] { return RestoreToFreeSpace(2, 2 * kMiB, kMiB); }), 80u);
}

TEST_F(RestoreShortTransferSweepTest, AVolume)
{
    SHOWS(KkRestoreToVolume, KK_STATUS_SUCCESS,
          "transfers that move fewer bytes than asked are continued, and the "
          "volume is the same");

    EXPECT_GT(Sweep({kThird}, [this] { return RestoreToVolume(2, VolumeAt(kThird.start)); }), 40u);
}

TEST_F(RestoreShortTransferSweepTest, AClonedVolume)
{
    SHOWS(KkCloneVolume, KK_STATUS_SUCCESS,
          "transfers that move fewer bytes than asked are continued, and the clone "
          "is the same");

    EXPECT_EQ(Sweep({kSecond, kThird}, [this] { return CloneVolume(VolumeAt(kSecond.start), VolumeAt(kThird.start)); }),
              12u);
}

TEST_F(RestoreShortTransferSweepTest, AnInspectedImage)
{
    SHOWS(KkInspectImage, KK_STATUS_SUCCESS,
          "reads that move fewer bytes than asked are continued, and the records "
          "are the same");

    BeginCall();
    ImageInfoRecord info;
    ImagePartitionRecord partitions[4];
    uint32_t count;
    const uint64_t cut = SweepShortTransfers(
        machine, {.prepare =
                      [&] {
                          std::memset(&info, 0xEE, sizeof(info));
                          std::memset(partitions, 0xEE, sizeof(partitions));
                          count = 0xEEEEEEEE;
                      },
                  .run = [&] { return api.inspectImage(ImagePath().c_str(), &info, partitions, 4, &count); },
                  .result =
                      [&] {
                          std::vector<uint8_t> bytes = machine::BytesOf(info);
                          const std::vector<uint8_t> list = machine::BytesOf(partitions);
                          bytes.insert(bytes.end(), list.begin(), list.end());
                          bytes.push_back(static_cast<uint8_t>(count));
                          return bytes;
                      }});
    EXPECT_GT(cut, 30u);
}

class BackupShortTransferSweepTest : public BackupTest {};

TEST_F(BackupShortTransferSweepTest, ADiskWithAFileSystemAndOthers)
{
    SHOWS(KkBackup, KK_STATUS_SUCCESS,
          "transfers that move fewer bytes than asked are continued, and the image is the "
          "same");

    machine::Disk& disk = machine.AddDisk(16 * kMiB);
    disk.Gpt({.partitions = {{.start = kMiB, .length = 4 * kMiB}, {.start = 8 * kMiB, .length = kMiB}}});
    disk.Format(kMiB, 4 * kMiB, machine::FileSystem::Ntfs);
    FillPattern(disk, 8 * kMiB, kMiB, 3);

    const uint64_t cut = SweepShortTransfers(machine, {.prepare =
                                                           [this] {
                                                               images->Remove(ImagePath());
                                                               std::filesystem::remove(ManifestPath());
                                                           },
                                                       .run = [this] { return Backup({.usedBlocksOnly = 1}); },
                                                       .result = [this] { return ImageBytes(0, 16 * kMiB); }});
    EXPECT_GT(cut, 80u);
}

}  // namespace
