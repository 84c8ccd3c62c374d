#include <array>
#include <fstream>
#include <functional>
#include <set>

#include "exports/support/image_mount_test.h"
#include "support/sweep.h"

// Each call of the machine fails once, alone or with all that come after it.

namespace {

using machine::CallKind;
using machine::CallRecord;

constexpr FaultMode kModes[] = {FaultMode::OneCall, FaultMode::ThatCallAndAllLater};

class ImageMountSweepTest : public ImageMountTest {
protected:
    using Names = std::set<std::string>;
    using Debt = std::function<int32_t(const CallRecord&)>;

    /// Sweeps an operation in both modes. Its status is what the first failed call owes. Returns the names of all
    /// calls that failed.
    Names Sweep(const std::function<int32_t()>& operation, const Debt& owed, const std::function<void()>& check)
    {
        for (const FaultMode mode : kModes) {
            SweepFailingCalls(machine, mode, operation, [&](const CallRecord* failed, int32_t status) {
                EXPECT_EQ(status, FirstDebt(owed));
                EXPECT_TRUE(failed != nullptr || status == 0);
                check();
            });
        }
        machine.journal.Clear();
        EXPECT_EQ(operation(), 0);
        Names names;
        for (const CallRecord& call : machine.journal.Records()) {
            names.insert(call.name);
        }
        return names;
    }

    bool HasSucceeded(const char* name) const
    {
        const CallRecord* const call = machine.journal.First({.name = name});
        return call != nullptr && call->result == 0;
    }
    bool IsAttached() const { return !Attached().empty(); }

    /// What the service's calls owe. The last two of its entry points are optional.
    static int32_t OwedByService(const CallRecord& call)
    {
        if (call.kind == CallKind::LoadLibrary || call.kind == CallKind::GetProcedure) {
            return call.object.ends_with("Information") ? 0 : Status(0xC0000225);
        }
        if (call.name == "OpenVirtualDisk") {
            return Status(0x80070002);
        }
        return call.kind == CallKind::Win32Error ? Status(0x80070000 | (call.result & 0xFFFF)) : 0;
    }

private:
    int32_t FirstDebt(const Debt& owed) const
    {
        for (const CallRecord& call : machine.journal.Records()) {
            if (const int32_t debt = call.struck ? owed(call) : 0; debt != 0) {
                return debt;
            }
        }
        return 0;
    }
};

TEST_F(ImageMountSweepTest, Mounting)
{
    SHOWS(KkMountImage, KK_STATUS_SUCCESS, "what is not needed may fail");
    SHOWS(KkMountImage, KK_STATUS_NOT_FOUND, "the library or an entry point that is needed cannot be had");
    SHOWS(KkMountImage, KK_E_FILE_NOT_FOUND, "the open fails; nothing is attached");
    SHOWS(KkMountImage, 0x8007001F, "the attachment fails, or the disk's name is not told and it stays attached");

    const Names met = Sweep(
        [this] { return Mount(); },
        [](const CallRecord& call) { return call.object.ends_with("CreateVirtualDisk") ? 0 : OwedByService(call); },
        [this] {
            EXPECT_EQ(IsAttached(), HasSucceeded("AttachVirtualDisk"));
            EXPECT_EQ(diskNumber, HasSucceeded("GetVirtualDiskPhysicalPath") ? 1u : kNotWritten);
        });
    EXPECT_THAT(met, testing::IsSupersetOf({"LdrLoadDll", "LdrGetProcedureAddress", "OpenVirtualDisk",
                                            "AttachVirtualDisk", "GetVirtualDiskPhysicalPath"}));
}

TEST_F(ImageMountSweepTest, Unmounting)
{
    SHOWS(KkUnmountImage, KK_STATUS_SUCCESS, "what is not needed may fail");
    SHOWS(KkUnmountImage, KK_E_FILE_NOT_FOUND, "the open fails; the disk stays");
    SHOWS(KkUnmountImage, 0x8007001F, "the detachment fails; the disk stays");

    ASSERT_EQ(Mount(), 0);

    const Names met = Sweep([this] { return Unmount(); }, OwedByService,
                            [this] { EXPECT_EQ(IsAttached(), !HasSucceeded("DetachVirtualDisk")); });

    EXPECT_THAT(met, testing::IsSupersetOf({"OpenVirtualDisk", "DetachVirtualDisk"}));
}

TEST_F(ImageMountSweepTest, MountingAnOverlay)
{
    SHOWS(KkMountImageOverlay, KK_STATUS_SUCCESS, "what is not needed may fail");
    SHOWS(KkMountImageOverlay, KK_STATUS_NOT_FOUND, "the library or an entry point that is needed cannot be had");
    SHOWS(KkMountImageOverlay, 0x8007001F, "creation, attachment or the disk's name fail; what was made stays");

    const Names met = Sweep([this] { return MountOverlay(); }, OwedByService,
                            [this] {
                                EXPECT_EQ(IsAttached(), HasSucceeded("AttachVirtualDisk"));
                                EXPECT_EQ(HasOverlayFile(), HasSucceeded("CreateVirtualDisk"));
                                EXPECT_EQ(diskNumber, HasSucceeded("GetVirtualDiskPhysicalPath") ? 1u : kNotWritten);
                                std::filesystem::remove(OverlayPath());
                            });
    EXPECT_THAT(met, testing::IsSupersetOf({"LdrLoadDll", "LdrGetProcedureAddress", "CreateVirtualDisk",
                                            "AttachVirtualDisk", "GetVirtualDiskPhysicalPath"}));
}

TEST_F(ImageMountSweepTest, Querying)
{
    SHOWS(KkQueryDiskImage, KK_STATUS_SUCCESS, "whatever fails makes the disk none that shows an image");

    uint32_t isImage = 7;
    std::array<char16_t, 300> path = {};
    // The answer does not fit at first, so that it is asked for twice.
    virtualDisks.behaviour.dependency.refusals = 1;
    virtualDisks.behaviour.dependency.neededBytes = 5000;
    ASSERT_EQ(Mount(), 0);

    const Names met = Sweep(
        [&] {
            isImage = 7;
            path.fill(u'?');
            return api.queryDiskImage(1, &isImage, path.data(), static_cast<uint32_t>(path.size()));
        },
        [](const CallRecord&) { return 0; },
        [&] {
            const bool anyFailed = machine.faults.Struck() != nullptr;
            EXPECT_EQ(isImage, anyFailed ? 0u : 1u);
            EXPECT_EQ(path[0], anyFailed ? u'\0' : u'\\');
        });

    EXPECT_THAT(met, testing::IsSupersetOf(
                         {"NtCreateFile", "RtlAllocateHeap", "GetStorageDependencyInformation", "RtlFreeHeap"}));
}

TEST_F(ImageMountSweepTest, Discarding)
{
    SHOWS(KkDiscardOverlay, KK_STATUS_SUCCESS, "a file that cannot be deleted does not matter");
    SHOWS(KkDiscardOverlay, KK_E_FILE_NOT_FOUND, "the open fails; the file is deleted if the system allows it");
    SHOWS(KkDiscardOverlay, 0x8007001F, "the detachment fails");

    ASSERT_EQ(MountOverlay(), 0);
    const std::string content = ReadFile(OverlayPath());

    const Names met = Sweep([this] { return Discard(); }, OwedByService,
                            [&] {
                                EXPECT_EQ(IsAttached(), !HasSucceeded("DetachVirtualDisk"));
                                EXPECT_EQ(HasOverlayFile(), !HasSucceeded("NtCreateFile"));
                                // It is there again for the next run.
                                std::ofstream(OverlayPath()) << content;
                            });

    EXPECT_THAT(met, testing::IsSupersetOf({"OpenVirtualDisk", "DetachVirtualDisk", "NtCreateFile"}));
}

}  // namespace
