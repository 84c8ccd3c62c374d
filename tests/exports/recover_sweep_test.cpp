#include <algorithm>

#include "exports/support/recover_test.h"
#include "support/sweep.h"

// Each call of the machine fails once in a recovery, alone or with all that come after it, in the exports that it calls
// as in its own.

namespace {

using machine::CallKind;
using machine::CallRecord;
using machine::Journal;

/// How far a recovery had come when a call failed.
enum class Phase { Planning, Mounting, Recovering, Discarding };

bool WasCalledBefore(const Journal& journal, const CallRecord& failed, const char* name)
{
    const CallRecord* const call = journal.First({.name = name});
    return call != nullptr && call->index < failed.index;
}

bool IsOfBinding(const CallRecord& call)
{
    return call.kind == CallKind::LoadLibrary || call.kind == CallKind::GetProcedure;
}

Phase PhaseOf(const Journal& journal, const CallRecord& failed)
{
    const bool isBindingOfImages = IsOfBinding(failed) && !WasCalledBefore(journal, failed, "CreateVirtualDisk");
    if (failed.name == "OpenVirtualDisk" || WasCalledBefore(journal, failed, "OpenVirtualDisk")) {
        return Phase::Discarding;
    }
    if (WasCalledBefore(journal, failed, "GetVirtualDiskPhysicalPath")) {
        return Phase::Recovering;
    }
    const bool isOfService = failed.kind == CallKind::Win32Error;
    return isOfService || isBindingOfImages ? Phase::Mounting : Phase::Planning;
}

class RecoverSweepTest : public RecoverTest {
protected:
    RecoverSweepTest()
    {
        AddTarget(2 * kMiB);
        MakeImage(4 * kMiB);
        machine.SetVolumeNumber(*machine.FindVolume(0, kTargetStart), 1);
    }

    int32_t Run()
    {
        // Files outlive the process of a run.
        std::filesystem::remove(OverlayPath());
        return api.recoverShrinkToFit(WindowsPath(imagePath).c_str(), 1, 0, kTargetStart);
    }

    /// The statuses that a failure may end with. In the exports that are called inside, most calls can be done without
    /// or have a status of their own.
    std::vector<int32_t> MayOwe(const CallRecord& failed) const
    {
        const int32_t own =
            failed.kind == CallKind::Allocate ? Status(0xC0000017) : static_cast<int32_t>(failed.result);
        switch (PhaseOf(machine.journal, failed)) {
        case Phase::Planning:
            if (failed.kind == CallKind::Allocate && (failed.length == 6912 || failed.length == 23872)) {
                return {Status(0xC0000017)};
            }
            return {0, Status(0xC0000001), Status(0xC000000D)};
        case Phase::Mounting:
            if (failed.object.ends_with("GetStorageDependencyInformation")) {
                return {0};
            }
            return {IsOfBinding(failed) ? Status(0xC0000225) : Status(0x80070000 | (failed.result & 0xFFFF))};
        case Phase::Recovering:
            return {0, own, Status(0xC0000001), Status(0xC000000D), Status(0xC0000013), Status(0xC0000023)};
        case Phase::Discarding:
            break;
        }
        return {0};
    }

    /// Of several failures one is told, and none that must be told is passed over.
    void ExpectOwed(int32_t status) const
    {
        std::vector<int32_t> allowed;
        bool mayBeWell = true;
        for (const CallRecord& call : machine.journal.Records()) {
            if (call.struck) {
                const std::vector<int32_t> more = MayOwe(call);
                allowed.insert(allowed.end(), more.begin(), more.end());
                mayBeWell = mayBeWell && std::ranges::count(more, 0) != 0;
            }
        }
        EXPECT_THAT(allowed, testing::Contains(status));
        EXPECT_TRUE(mayBeWell || status != 0);
    }

    bool Succeeded(const machine::CallPattern& pattern) const
    {
        const std::vector<CallRecord> calls = machine.journal.FindAll(pattern);
        return std::ranges::any_of(calls, [](const CallRecord& call) { return call.result == 0; });
    }
    /// The overlay and its disk are there as long as the calls that end them have not succeeded.
    void ExpectWhatTheCallsLeft() const
    {
        const bool attached = Succeeded({.name = "AttachVirtualDisk"}) && !Succeeded({.name = "DetachVirtualDisk"});
        EXPECT_EQ(!virtualDisks.AttachedImages().empty(), attached);
        const bool made = Succeeded({.name = "CreateVirtualDisk"});
        const bool deleted = Succeeded({.kind = CallKind::CreateFile, .object = ".rec.avhdx"});
        EXPECT_EQ(std::filesystem::exists(OverlayPath()), made && !deleted);
        EXPECT_LE(machine.journal.Count({.name = "DetachVirtualDisk"}), 1u);
        EXPECT_EQ(machine.journal.Count({.kind = CallKind::CreateFile, .object = ".rec.avhdx"}) == 0,
                  !ReachedTheOverlay())
            << "the deletion is tried whenever the overlay was";
        std::filesystem::remove(OverlayPath());
    }
    /// What cannot be read in small pieces either ends a clone, without a failure.
    bool ARetriedReadFailed() const
    {
        const std::vector<CallRecord> reads = machine.journal.FindAll({.kind = CallKind::ReadFile});
        return std::ranges::any_of(reads,
                                   [](const CallRecord& read) { return read.result != 0 && read.length == 512; });
    }
    bool ReachedTheOverlay() const { return machine.journal.Count({.kind = CallKind::LoadLibrary}) != 0; }
};

TEST_F(RecoverSweepTest, EveryFailureIsToldAndClearedAway)
{
    SHOWS(KkRecoverShrinkToFit, KK_STATUS_SUCCESS,
          "whatever fails, overlay and image are left as the calls that succeeded leave them");
    SHOWS(KkRecoverShrinkToFit, KK_STATUS_NO_MEMORY, "no memory for the lists of partitions");
    SHOWS(KkRecoverShrinkToFit, KK_STATUS_UNSUCCESSFUL, "the image cannot be inspected or the target disk listed");
    SHOWS(KkRecoverShrinkToFit, KK_STATUS_NOT_FOUND, "the library or an entry point that is needed cannot be had");
    SHOWS(KkRecoverShrinkToFit, 0x8007001F,
          "the virtual-disk service fails to create, attach or name the overlay's disk");

    const std::shared_ptr<machine::TrackedStorage> image = images->ImageBytes(imagePath);
    const size_t writes = image->WriteSizes().size();
    for (const FaultMode mode : {FaultMode::OneCall, FaultMode::ThatCallAndAllLater, FaultMode::TwoCalls}) {
        const uint64_t calls = SweepFailingCalls(
            machine, mode, [this] { return Run(); },
            [&](const CallRecord* failed, int32_t status) {
                if (failed == nullptr) {
                    EXPECT_EQ(status, 0);
                } else if (mode != FaultMode::ThatCallAndAllLater) {
                    ExpectOwed(status);
                }
                EXPECT_TRUE(status != 0 || ARetriedReadFailed() || TargetHolds(1)) << "a success that is none";
                const bool cloning = machine.journal.Count({.code = 0x90018}) != 0;
                EXPECT_TRUE(cloning || TargetIsBlank()) << "the target was touched before the clone";
                EXPECT_EQ(image->WriteSizes().size(), writes) << "the image was written";
                ExpectWhatTheCallsLeft();
            });
        EXPECT_GT(calls, mode == FaultMode::TwoCalls ? 30u : 60u);
    }
}

}  // namespace
