#include <algorithm>

#include "backup/backup_plan.h"
#include "backup/image_partition_table.h"
#include "exports/support/backup_test.h"

// How KkBackup moves data: through which memory, in which pieces and order.

namespace {

using machine::CallKind;

class BackupTransferTest : public BackupTest {};

TEST_F(BackupTransferTest, MovesEightMebibytesAtATimeThroughOneBuffer)
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

TEST_F(BackupTransferTest, AllocatesNothingButWhatItNeeds)
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

TEST_F(BackupTransferTest, ReadsEachTransferBeforeItWritesIt)
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

TEST_F(BackupTransferTest, FlushesOnceAfterTheLastPartitionAndOnceAfterTheTable)
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

TEST_F(BackupTransferTest, MovesNothingElseThanTheTableAndTheData)
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

}  // namespace
