#include <algorithm>

#include "backup/backup_plan.h"
#include "backup/used_extents.h"
#include "exports/support/backup_test.h"
#include "support/sweep.h"

namespace {

using machine::CallKind;

/// Which status a backup owes the failure of one call. Everything that only makes it fall back is a success.
int32_t OwedStatus(const machine::CallRecord& failed, const machine::Journal& journal)
{
    const auto before = [&](const machine::CallPattern& pattern) { return CallsBefore(journal, failed, pattern); };
    const auto own = static_cast<int32_t>(failed.result);
    const bool planning = before({.name = "CreateVirtualDisk"}) == 0;
    const bool copied = before({.name = "DetachVirtualDisk"}) > 0;
    switch (failed.kind) {
    case CallKind::DeviceControl:
        // A disk that does not tell its size gives an image of no size, which cannot be made.
        return AsksForSize(failed) ? KK_STATUS_UNSUCCESSFUL : 0;
    case CallKind::CreateFile:
        return failed.object.find("PhysicalDrive") != std::string::npos ? own : 0;
    case CallKind::ReadFile:
        return own;
    case CallKind::WriteFile:
        return failed.object.find("PhysicalDrive") != std::string::npos ? own : 0;
    case CallKind::LoadLibrary:
    case CallKind::GetProcedure:
        return failed.object.find("virtdisk") != std::string::npos ? KK_STATUS_NOT_FOUND : 0;
    case CallKind::Win32Error:
        return KK_STATUS_UNSUCCESSFUL;
    case CallKind::Allocate: {
        if (copied) {
            return 0;
        }
        if (planning) {
            // The drive's object, each answer with the layout, the partition list; later the plan.
            const bool layoutNeedsIt = before({.kind = CallKind::Allocate}) < 2 + before({.code = 0x70050});
            const bool needed = layoutNeedsIt || failed.length == 8 * sizeof(kk::BackupPlanEntry);
            return needed ? KK_STATUS_NO_MEMORY : 0;
        }
        const uint64_t written = before({.kind = CallKind::WriteFile, .object = "PhysicalDrive1"});
        if (written == 0) {
            const bool tableBuffer = failed.length == 16384 || failed.length == 512;
            const bool list = failed.length == 8 * 128;
            return list ? 0 : tableBuffer ? KK_STATUS_UNSUCCESSFUL : KK_STATUS_NO_MEMORY;
        }
        return failed.length == 0x800000 ? KK_STATUS_NO_MEMORY : 0;
    }
    default:
        return 0;
    }
}

class BackupSweepTest : public BackupTest {
protected:
    /// One NTFS volume and one reserved partition; few volumes exist, so that a run has few calls.
    machine::Disk& AddSmallDisk()
    {
        machine::Disk& disk = machine.AddDisk(16 * kMiB);
        disk.Gpt({.partitions = {{.start = kMiB, .length = 4 * kMiB},
                                 {.start = 8 * kMiB, .length = kMiB, .type = machine::kReservedType}}});
        return disk.Format(kMiB, 4 * kMiB, machine::FileSystem::Ntfs);
    }

    int32_t FreshBackup(const BackupOptions& options)
    {
        std::filesystem::remove(ManifestPath());
        return Backup(options);
    }
};

TEST_F(BackupSweepTest, OwesEachFailingCallItsStatusAndLeavesNothingBehind)
{
    SHOWS(KkBackup, KK_STATUS_SUCCESS,
          "trouble with snapshots, volumes and clusters in use never fails it, whichever call fails");
    SHOWS(KkBackup, KK_STATUS_NOT_FOUND, "an entry point of the virtual-disk service cannot be had");
    SHOWS(KkBackup, KK_STATUS_NO_MEMORY, "the buffer or the lists of partitions cannot be allocated");
    SHOWS(KkBackup, KK_STATUS_UNSUCCESSFUL, "the virtual-disk service fails, or the disk does not tell its size");

    machine::Disk& disk = AddSmallDisk();
    const BackupOptions options = {.usedBlocksOnly = 1, .useSnapshots = 1};

    const uint64_t calls = SweepFailingCalls(
        machine, FaultMode::OneCall, [&] { return FreshBackup(options); },
        [&](const machine::CallRecord* failed, int32_t status) {
            const int32_t owed = failed == nullptr ? 0 : OwedStatus(*failed, machine.journal);
            EXPECT_EQ(status, owed);
            const bool copied = owed == 0 || (failed != nullptr && failed->name == "DetachVirtualDisk");
            EXPECT_EQ(ResultIsUntouched(), !copied);
            EXPECT_FALSE(virtualDisks.DiskNumberOf(ImagePath()).has_value());
            EXPECT_TRUE(snapshots.Snapshots().empty());
            if (!copied) {
                EXPECT_FALSE(HasManifest());
                return;
            }
            EXPECT_EQ(result.partitionsCopied, 2u);
            ExpectSameBytes(disk, 8 * kMiB, 8 * kMiB, kMiB);
            // A run of clusters for which the list cannot grow is left out, and nobody is told.
            const bool runLost = failed != nullptr && failed->kind == CallKind::Allocate &&
                                 failed->length == 8 * sizeof(kk::VolumeExtent) &&
                                 failed->index < machine.journal.First({.name = "DetachVirtualDisk"})->index;
            EXPECT_EQ(disk.ReadBytes(kMiB, 64 * kKiB) != ImageBytes(kMiB, 64 * kKiB), runLost);
        });

    EXPECT_GT(calls, 300u);
}

TEST_F(BackupSweepTest, LeavesNothingBehindWhenEverythingFailsFromSomePointOn)
{
    SHOWS(KkBackup, KK_STATUS_SUCCESS,
          "nothing that fails after the detachment spoils it, also when all later calls fail");

    AddSmallDisk();

    SweepFailingCalls(
        machine, FaultMode::ThatCallAndAllLater, [&] { return FreshBackup({.useSnapshots = 1, .compact = 1}); },
        [&](const machine::CallRecord* failed, int32_t status) {
            // Nothing that comes after the detachment can spoil a backup, and nothing before it can be done without.
            const std::vector<machine::CallRecord> detaches = machine.journal.FindAll({.name = "DetachVirtualDisk"});
            const bool detached = std::ranges::any_of(detaches, [](const auto& call) { return !call.struck; });
            EXPECT_EQ(status == 0, detached);
            EXPECT_TRUE(failed != nullptr || detached);
        });
}

TEST_F(BackupSweepTest, EndsWithTheFirstOfTwoFailuresThatOwesAStatus)
{
    SHOWS(KkBackup, "of two failing calls the first that matters gives the status, and nothing is left open, attached "
                    "or allocated");

    AddSmallDisk();

    const uint64_t pairs = SweepFailingCalls(
        machine, FaultMode::TwoCalls, [&] { return FreshBackup({.usedBlocksOnly = 1, .useSnapshots = 1}); },
        [&](const machine::CallRecord* /*last*/, int32_t status) {
            const machine::CallRecord* decisive = nullptr;
            const int32_t owed = FirstDebt(machine.journal, [&](const machine::CallRecord& call) {
                decisive = &call;
                return OwedStatus(call, machine.journal);
            });
            EXPECT_EQ(status, owed);
            const bool copied = owed == 0 || decisive->name == "DetachVirtualDisk";
            EXPECT_EQ(ResultIsUntouched(), !copied);
            EXPECT_FALSE(HasManifest() && !copied);
            EXPECT_FALSE(virtualDisks.DiskNumberOf(ImagePath()).has_value());
            EXPECT_TRUE(snapshots.Snapshots().empty());
        });

    EXPECT_GT(pairs, 40u);
}

}  // namespace
