#include <algorithm>

#include "exports/support/backup_test.h"

namespace {

using machine::CallKind;
using machine::CallRecord;

/// The order in which a backup ends, successful or not.
class BackupOrderTest : public BackupTest {
protected:
    /// What ends something, from the last transfer of data on: each call with what it was made for.
    std::vector<std::string> LastSteps() const
    {
        std::vector<std::string> steps;
        const CallRecord* const lastTransfer =
            machine.journal.Last({.kind = CallKind::WriteFile, .object = "PhysicalDrive"});
        for (const CallRecord& call : machine.journal.Records()) {
            if (lastTransfer != nullptr && call.index > lastTransfer->index && IsStep(call)) {
                steps.push_back(call.name + " " + ShortName(call.object));
            }
        }
        return steps;
    }

private:
    static bool IsStep(const CallRecord& call)
    {
        const bool lookup = call.object.find("HarddiskVolume") != std::string::npos ||
                            call.object.find("MountPointManager") != std::string::npos;
        const bool step = call.kind == CallKind::Flush || call.kind == CallKind::Close ||
                          call.kind == CallKind::CreateFile || call.kind == CallKind::WriteFile ||
                          call.kind == CallKind::Win32Error || call.kind == CallKind::Release;
        return step && !lookup;
    }

    /// The part behind the last separator.
    static std::string ShortName(const std::string& object)
    {
        const size_t separator = object.find_last_of("\\/");
        return separator == std::string::npos ? object : object.substr(separator + 1);
    }
};

TEST_F(BackupOrderTest, EndsInTheOrderThatLeavesTheImageWholeAtEachStep)
{
    SHOWS(KkBackup, KK_STATUS_SUCCESS,
          "it flushes, closes, detaches, writes the manifest and releases the snapshots, in this order");

    AddUsualDisk();

    ASSERT_EQ(Backup({.useSnapshots = 1}), 0);

    const std::vector<std::string> expected = {
        "NtFlushBuffersFile PhysicalDrive1",
        "NtClose PhysicalDrive0",
        "NtClose PhysicalDrive1",
        "DetachVirtualDisk image.vhdx",
        "NtCreateFile image.vhdx.json",
        "NtWriteFile image.vhdx.json",
        "NtClose image.vhdx.json",
        "NtClose virtual disk",
        "IVssBackupComponents::Release ",
        "CoUninitialize ",
    };
    EXPECT_EQ(LastSteps(), expected);
}

TEST_F(BackupOrderTest, ClosesItsDisksBeforeItDetachesAHalfWrittenImage)
{
    SHOWS(KkBackup, KK_STATUS_DISK_FULL, "after a failing write the disks are closed before the image is detached");

    AddUsualDisk();
    machine.faults.Fail({.kind = CallKind::WriteFile, .object = "PhysicalDrive1"}, 7, 0xC000007F);

    ASSERT_EQ(Backup({.useSnapshots = 1}), Status(0xC000007F));

    const std::vector<std::string> expected = {
        "NtClose PhysicalDrive0", "NtClose PhysicalDrive1",         "DetachVirtualDisk image.vhdx",
        "NtClose virtual disk",   "IVssBackupComponents::Release ", "CoUninitialize ",
    };
    EXPECT_EQ(LastSteps(), expected);
}

TEST_F(BackupOrderTest, DoesTheSameWithoutATransferBuffer)
{
    SHOWS(KkBackup, KK_STATUS_NO_MEMORY, "without a buffer the disks are closed before the image is detached");

    AddUsualDisk();
    machine.heap.SetLimit(4 * kMiB);

    ASSERT_EQ(Backup({.useSnapshots = 1}), KK_STATUS_NO_MEMORY);

    const std::vector<std::string> expected = {
        "NtFlushBuffersFile PhysicalDrive1",
        "NtClose PhysicalDrive0",
        "NtClose PhysicalDrive1",
        "DetachVirtualDisk image.vhdx",
        "NtClose virtual disk",
        "IVssBackupComponents::Release ",
        "CoUninitialize ",
    };
    EXPECT_EQ(LastSteps(), expected);
}

TEST_F(BackupOrderTest, FreesTheTransferBufferAfterTheManifest)
{
    SHOWS(KkBackup, KK_STATUS_SUCCESS, "the buffer is freed after the manifest was written");

    AddUsualDisk();

    ASSERT_EQ(Backup(), 0);

    const std::vector<CallRecord> frees = machine.journal.FindAll({.kind = CallKind::Free});
    const auto buffer = std::ranges::find(frees, kTransfer, &CallRecord::length);
    ASSERT_NE(buffer, frees.end());
    EXPECT_GT(buffer->index, machine.journal.Last({.kind = CallKind::WriteFile, .object = ".json"})->index);
}

TEST_F(BackupOrderTest, KeepsAFailedSnapshotAttemptUntilTheEndToo)
{
    SHOWS(KkBackup, KK_STATUS_SUCCESS, "a failed attempt at snapshots is released at the end too");

    AddUsualDisk();
    snapshots.Operation("DoSnapshotSet").reported = Status(0x8004231F);

    ASSERT_EQ(Backup({.useSnapshots = 1}), 0);

    const std::vector<std::string> steps = LastSteps();
    ASSERT_GE(steps.size(), 3u);
    EXPECT_EQ(steps[steps.size() - 3], "NtClose virtual disk");
    EXPECT_EQ(steps[steps.size() - 2], "IVssBackupComponents::Release ");
    EXPECT_EQ(steps[steps.size() - 1], "CoUninitialize ");
}

TEST_F(BackupOrderTest, LeavesAnotherKindOfApartmentAsItFoundIt)
{
    SHOWS(KkBackup, KK_STATUS_SUCCESS,
          "a thread in an apartment of another kind is left there, and snapshots are used");

    AddUsualDisk();
    snapshots.apartments.Preset(machine::Apartment::SingleThreaded);

    ASSERT_EQ(Backup({.useSnapshots = 1}), 0);

    EXPECT_EQ(result.snapshotsUsed, 1u);
    EXPECT_EQ(machine.journal.Count({.name = "CoUninitialize"}), 0u);
}

}  // namespace
