// Every call that these operations make fails once: nothing may be left behind, and each result must fit.

#include "disk/disk_layout.h"
#include "disk/mount_points.h"
#include "disk/volume_lookup.h"
#include "support/machine_test.h"
#include "support/sweep.h"

namespace kk {
namespace {

class FailingCallsTest : public MachineTest {
protected:
    FailingCallsTest()
    {
        machine::GptTable table;
        for (uint64_t i = 0; i < 9; ++i) {
            table.partitions.push_back({.start = (i + 1) * kMiB, .length = 1 * kMiB});
        }
        machine.AddDisk(64 * kMiB).Gpt(table);
        machine.AssignLetter(*machine.FindVolume(0, 1 * kMiB), u'C');
    }
};

constexpr KK_STATUS kWrongLayout = 1;
constexpr KK_STATUS kNone = 2;

TEST_F(FailingCallsTest, ALayoutIsReadOrTheFailureIsReported)
{
    const auto read = [] {
        DiskLayout layout;
        const KK_STATUS status = ReadDiskLayout(0, layout);
        return status == KK_STATUS_SUCCESS && layout.partitions.Count() != 9 ? kWrongLayout : status;
    };
    const uint64_t calls =
        SweepFailingCalls(machine, FaultMode::OneCall, read, [](const machine::CallRecord* failed, int32_t status) {
            // A failing geometry or a single failing layout request is no failure.
            const bool isControl = failed == nullptr || failed->kind == machine::CallKind::DeviceControl;
            const bool isMemory = failed != nullptr && failed->kind == machine::CallKind::Allocate;
            EXPECT_EQ(status, isControl ? KK_STATUS_SUCCESS : isMemory ? Status(0xC0000017) : Status(0xC00000E9));
        });

    EXPECT_EQ(calls, 7u);
}

TEST_F(FailingCallsTest, ALayoutIsNotReadOnceAllLaterCallsFail)
{
    const auto read = [] {
        DiskLayout layout;
        return ReadDiskLayout(0, layout);
    };
    SweepFailingCalls(
        machine, FaultMode::ThatCallAndAllLater, read,
        [](const machine::CallRecord* failed, int32_t status) { EXPECT_EQ(status < 0, failed != nullptr); });
}

TEST_F(FailingCallsTest, AVolumeIsFoundOrPassedOver)
{
    const auto find = [] {
        char16_t path[64];
        uint32_t clusterSize = 0;
        return FindVolumeForPartition(0, 2 * kMiB, path, 64, &clusterSize) ? KK_STATUS_SUCCESS : kNone;
    };
    SweepFailingCalls(machine, FaultMode::OneCall, find, [](const machine::CallRecord* failed, int32_t status) {
        // The first volume is another one's, and the cluster size is not needed.
        const bool isNeeded = failed != nullptr && failed->kind != machine::CallKind::FsControl;
        EXPECT_TRUE(status == KK_STATUS_SUCCESS || isNeeded);
    });
}

TEST_F(FailingCallsTest, AVolumeIsOpenedForWritingOrNot)
{
    const auto open = [] {
        DevicePtr volume;
        const bool isOpen = OpenVolumeForPartition(0, 1 * kMiB, volume);
        EXPECT_EQ(isOpen, static_cast<bool>(volume));
        return isOpen ? KK_STATUS_SUCCESS : kNone;
    };
    SweepFailingCalls(machine, FaultMode::OneCall, open, [](const machine::CallRecord* failed, int32_t status) {
        // The cluster size is not needed.
        const bool isNeeded = failed != nullptr && failed->kind != machine::CallKind::FsControl;
        EXPECT_EQ(status, isNeeded ? kNone : KK_STATUS_SUCCESS);
    });
}

TEST_F(FailingCallsTest, AMountPointIsFoundOrNot)
{
    const auto look = [] {
        char16_t letter[kDriveLetterUnits];
        return GetDriveLetter(u"\\Device\\HarddiskVolume1", letter) ? KK_STATUS_SUCCESS : kNone;
    };
    const uint64_t calls =
        SweepFailingCalls(machine, FaultMode::OneCall, look, [](const machine::CallRecord* failed, int32_t status) {
            EXPECT_EQ(status, failed == nullptr ? KK_STATUS_SUCCESS : kNone);
        });

    EXPECT_EQ(calls, 4u);
}

}  // namespace
}  // namespace kk
