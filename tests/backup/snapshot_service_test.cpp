#include <list>
#include <string>
#include <vector>

#include "backup/snapshot_api.h"
#include "backup/snapshot_set.h"
#include "machine/snapshot_service.h"
#include "support/forked_run.h"
#include "support/machine_test.h"

namespace {

constexpr int32_t kFailure = Status(0x80042300);

/// A service of the machine's, with volumes of its own.
class SnapshotServiceTest : public MachineTest {
protected:
    SnapshotServiceTest()
    {
        std::vector<machine::MbrPartition> partitions;
        for (uint64_t i = 0; i < 3; ++i) {
            partitions.push_back({.start = (1 + 2 * i) * kMiB, .length = kMiB});
        }
        machine.AddDisk(16 * kMiB).Mbr({.partitions = partitions});
        for (const auto& volume : machine.volumes.All()) {
            paths.push_back(volume->Path());
            names.push_back(paths.back().c_str());
        }
    }

    KK_STATUS Create() { return kk::CreateSnapshots(set, names.data(), static_cast<uint32_t>(names.size())); }

    std::list<std::u16string> paths;
    std::vector<const char16_t*> names;
    machine::SnapshotService& service = machine::InstallSnapshotService(machine);
    kk::SnapshotSet set;
};

TEST_F(SnapshotServiceTest, SnapshotsLastUntilTheirRelease)
{
    ASSERT_EQ(Create(), 0);
    EXPECT_EQ(service.Snapshots().size(), 3u);
    for (size_t i = 0; i < names.size(); ++i) {
        ASSERT_NE(kk::FindSnapshotDevice(set, names[i]), nullptr);
        EXPECT_EQ(kk::FindSnapshotDevice(set, names[i]),
                  u"\\\\?\\GLOBALROOT\\Device\\HarddiskVolumeShadowCopy" + std::u16string(1, u'1' + char16_t(i)));
    }

    kk::ReleaseSnapshots(set);

    EXPECT_TRUE(service.Snapshots().empty());
    EXPECT_TRUE(machine.Imbalances().empty());
}

TEST_F(SnapshotServiceTest, AThreadOfTheSameApartmentIsBalancedToo)
{
    service.apartments.Preset(machine::Apartment::Multithreaded);

    EXPECT_EQ(Create(), 0);
    EXPECT_TRUE(set.comInitialized);
    EXPECT_EQ(machine.journal.First({.name = "CoInitializeEx"})->result, 1u);

    kk::ReleaseSnapshots(set);
    EXPECT_EQ(machine.journal.Count({.name = "CoUninitialize"}), 1u);
    EXPECT_TRUE(machine.Imbalances().empty());
}

TEST_F(SnapshotServiceTest, AThreadOfASingleThreadedApartmentGetsSnapshotsToo)
{
    service.apartments.Preset(machine::Apartment::SingleThreaded);

    EXPECT_EQ(Create(), 0);
    EXPECT_NE(kk::FindSnapshotDevice(set, names[0]), nullptr);

    kk::ReleaseSnapshots(set);
    EXPECT_EQ(machine.journal.Count({.name = "CoUninitialize"}), 0u);
}

TEST_F(SnapshotServiceTest, TheReportOfEveryOperationCounts)
{
    for (const char* const operation : {"GatherWriterMetadata", "PrepareForBackup", "DoSnapshotSet"}) {
        service.Operation(operation).reported = kFailure;
        EXPECT_EQ(Create(), kFailure) << operation;
        kk::ReleaseSnapshots(set);

        service.Operation(operation) = {.waitResult = Status(0x80010117)};
        machine.journal.Clear();
        EXPECT_EQ(Create(), Status(0x80010117)) << operation;
        EXPECT_EQ(machine.journal.Count({.name = "IVssAsync::QueryStatus", .object = operation}), 0u) << operation;
        EXPECT_EQ(machine.journal.Count({.name = "IVssAsync::Release", .object = operation}), 1u) << operation;
        kk::ReleaseSnapshots(set);

        service.Operation(operation) = {.queryResult = Status(0x80010118)};
        EXPECT_EQ(Create(), Status(0x80010118)) << operation;
        kk::ReleaseSnapshots(set);

        service.Operation(operation) = {.givesObject = false};
        EXPECT_EQ(Create(), Status(0x80004005)) << operation;
        kk::ReleaseSnapshots(set);

        service.Operation(operation) = {.callResult = 5, .givesObject = false};
        EXPECT_EQ(Create(), Status(0x80004005)) << operation;
        kk::ReleaseSnapshots(set);

        service.Operation(operation) = {.callResult = kFailure, .givesObject = true};
        EXPECT_EQ(Create(), kFailure) << operation;
        kk::ReleaseSnapshots(set);

        service.Operation(operation) = {};
        EXPECT_TRUE(machine.Imbalances().empty()) << operation;
    }
    EXPECT_EQ(Create(), 0);
}

TEST_F(SnapshotServiceTest, CancelledOrPendingOperationsAreNoFailures)
{
    service.Operation("GatherWriterMetadata").reported = machine::kVssAsyncCancelled;
    service.Operation("PrepareForBackup").reported = machine::kVssAsyncPending;
    service.Operation("DoSnapshotSet").reported = machine::kVssAsyncCancelled;

    EXPECT_EQ(Create(), 0);
    EXPECT_EQ(set.count, 3u);
    EXPECT_EQ(kk::FindSnapshotDevice(set, names[0]), nullptr);
}

TEST_F(SnapshotServiceTest, AVolumeThatIsRefusedEndsItBeforeTheTableCounts)
{
    machine.faults.Fail({.name = "IVssBackupComponents::AddToSnapshotSet"}, 3, 0x8004230C);

    EXPECT_EQ(Create(), Status(0x8004230C));
    EXPECT_EQ(set.count, 0u);
    EXPECT_EQ(kk::FindSnapshotDevice(set, names[0]), nullptr);
}

TEST_F(SnapshotServiceTest, OneVolumeWithoutPropertiesLeavesTheOthers)
{
    machine.faults.Fail({.name = "IVssBackupComponents::GetSnapshotProperties"}, 2, 0x80042308);
    service.OmitDeviceName(*machine.volumes.All()[2]);

    EXPECT_EQ(Create(), 0);
    EXPECT_NE(kk::FindSnapshotDevice(set, names[0]), nullptr);
    EXPECT_EQ(kk::FindSnapshotDevice(set, names[1]), nullptr);
    EXPECT_EQ(kk::FindSnapshotDevice(set, names[2]), nullptr);
    EXPECT_EQ(machine.journal.Count({.name = "VssFreeSnapshotProperties"}), 2u);
}

TEST_F(SnapshotServiceTest, NoFailingCallLeavesAnythingBehind)
{
    (void)kk::SnapshotServiceAvailable();
    uint64_t n = 1;
    for (;; ++n) {
        ASSERT_LT(n, 60u);
        machine.faults.FailCall(n);
        const KK_STATUS status = Create();
        const machine::CallRecord* const struck = machine.faults.Struck();
        const bool fails = struck != nullptr && struck->name != "CoInitializeSecurity" &&
                           struck->name != "IVssBackupComponents::GetSnapshotProperties";
        const int32_t expected = !fails                                        ? 0
                                 : struck->kind == machine::CallKind::Allocate ? Status(0xC0000017)
                                                                               : Status(0x8000FFFF);
        EXPECT_EQ(status, expected) << (struck != nullptr ? struck->name : "no fault");
        kk::ReleaseSnapshots(set);
        EXPECT_TRUE(machine.Imbalances().empty()) << n;
        if (struck == nullptr) {
            break;
        }
    }
    EXPECT_EQ(n, 24u);
}

TEST_F(SnapshotServiceTest, BothLibrariesAreBoundOnce)
{
    EXPECT_TRUE(kk::SnapshotServiceAvailable());
    std::vector<std::string> calls;
    for (const machine::CallRecord& record : machine.journal.Records()) {
        calls.push_back(record.object);
    }
    EXPECT_EQ(calls, (std::vector<std::string>{"ole32.dll", "ole32.dll!CoInitializeEx", "ole32.dll!CoUninitialize",
                                               "ole32.dll!CoInitializeSecurity", "vssapi.dll",
                                               "vssapi.dll!CreateVssBackupComponentsInternal",
                                               "vssapi.dll!VssFreeSnapshotProperties"}));

    machine.journal.Clear();
    EXPECT_TRUE(kk::SnapshotServiceAvailable());
    EXPECT_TRUE(machine.journal.Records().empty());
}

TEST_F(SnapshotServiceTest, AMissingLibraryIsMissingForGood)
{
    for (const char16_t* const library : {u"ole32.dll", u"vssapi.dll"}) {
        EXPECT_EQ(RunForked([&] {
                      machine.modules.Remove(library);
                      EXPECT_FALSE(kk::SnapshotServiceAvailable());
                      EXPECT_EQ(Create(), Status(0xC0000225));
                      EXPECT_EQ(set.table, nullptr);

                      machine::InstallSnapshotService(machine);
                      machine.journal.Clear();
                      EXPECT_FALSE(kk::SnapshotServiceAvailable());
                      EXPECT_EQ(Create(), Status(0xC0000225));
                      EXPECT_TRUE(machine.journal.Records().empty());
                      return 0;
                  }),
                  0);
    }
}

TEST_F(SnapshotServiceTest, WithoutComTheServiceIsNotLoaded)
{
    machine.modules.Remove(u"ole32.dll");

    EXPECT_FALSE(kk::SnapshotServiceAvailable());
    EXPECT_EQ(machine.journal.Count({.object = "ole32.dll"}), 1u);
    EXPECT_EQ(machine.journal.Count({.object = "vssapi.dll"}), 0u);
}

TEST_F(SnapshotServiceTest, EveryEntryPointButSecurityIsRequired)
{
    struct Entry {
        const char16_t* library;
        const char* name;
    };
    for (const Entry& entry : {Entry{u"ole32.dll", "CoInitializeEx"}, Entry{u"ole32.dll", "CoUninitialize"},
                               Entry{u"vssapi.dll", "CreateVssBackupComponentsInternal"},
                               Entry{u"vssapi.dll", "VssFreeSnapshotProperties"}}) {
        EXPECT_EQ(RunForked([&] {
                      machine.modules.RemoveEntry(entry.library, entry.name);
                      EXPECT_EQ(Create(), Status(0xC0000225));
                      EXPECT_EQ(machine.journal.Count({.name = "CoInitializeEx"}), 0u);
                      EXPECT_FALSE(kk::SnapshotServiceAvailable());
                      kk::ReleaseSnapshots(set);
                      return 0;
                  }),
                  0)
            << entry.name;
    }
}

TEST_F(SnapshotServiceTest, WithoutSecurityTheCallIsLeftOut)
{
    machine.modules.RemoveEntry(u"ole32.dll", "CoInitializeSecurity");

    EXPECT_EQ(Create(), 0);
    EXPECT_NE(kk::FindSnapshotDevice(set, names[2]), nullptr);
    EXPECT_EQ(machine.journal.Count({.name = "CoInitializeSecurity"}), 0u);
}

}  // namespace
