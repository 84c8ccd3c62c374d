#include "backup/snapshot_set.h"

#include "scripted_snapshots.h"
#include "support/machine_test.h"

namespace {

constexpr int32_t kFailure = Status(0x80042300);

/// A service whose objects give an asynchronous operation even when the call fails.
class SnapshotFailuresTest : public MachineTest {
protected:
    KK_STATUS Create(uint32_t count = 2)
    {
        const char16_t* const names[] = {u"one", u"two", u"three"};
        return kk::CreateSnapshots(set, names, count);
    }

    ScriptedSnapshots service{machine};
    kk::SnapshotSet set;
};

struct FailingCall {
    const char* name;
    std::vector<std::string> after;  // the calls that follow all the same
    uint32_t count;                  // of volumes in the set
};

TEST_F(SnapshotFailuresTest, EveryFailingCallEndsItWithItsResult)
{
    const std::vector<FailingCall> calls = {
        {"CreateVssBackupComponentsInternal", {}, 0},
        {"InitializeForBackup", {}, 0},
        {"SetBackupState", {}, 0},
        {"SetContext", {}, 0},
        {"GatherWriterMetadata", {"Async Release"}, 0},
        {"Wait", {"Async Release"}, 0},
        {"QueryStatus", {"Async Release"}, 0},
        {"StartSnapshotSet", {}, 0},
        {"AddToSnapshotSet", {}, 0},
        {"PrepareForBackup", {"Async Release"}, 2},
        {"DoSnapshotSet", {"Async Release"}, 2},
    };
    for (const FailingCall& call : calls) {
        service.results = {{call.name, kFailure}};
        service.log.clear();

        EXPECT_EQ(Create(), kFailure) << call.name;
        EXPECT_EQ(set.count, call.count) << call.name;
        EXPECT_EQ(kk::FindSnapshotDevice(set, u"one"), nullptr) << call.name;
        const auto failed = std::find_if(service.log.begin(), service.log.end(), [&call](const std::string& line) {
            return line.substr(0, line.find(' ')) == call.name;
        });
        ASSERT_NE(failed, service.log.end()) << call.name;
        EXPECT_EQ(std::vector<std::string>(failed + 1, service.log.end()), call.after) << call.name;
        EXPECT_NE(set.components, nullptr) << call.name;

        service.log.clear();
        kk::ReleaseSnapshots(set);
        EXPECT_EQ(service.log, (std::vector<std::string>{"components Release", "CoUninitialize"})) << call.name;
        EXPECT_EQ(machine.heap.LiveBlocks(), 0u);
    }
}

TEST_F(SnapshotFailuresTest, AThreadThatCannotJoinComGetsNoSnapshots)
{
    service.results["CoInitializeEx"] = Status(0x80070057);

    EXPECT_EQ(Create(), Status(0x80070057));
    EXPECT_EQ(service.log, std::vector<std::string>{"CoInitializeEx 0"});
    EXPECT_FALSE(set.comInitialized);

    kk::ReleaseSnapshots(set);
    EXPECT_EQ(service.log.size(), 1u);
}

TEST_F(SnapshotFailuresTest, AThreadInAnotherApartmentStaysThere)
{
    service.results["CoInitializeEx"] = Status(0x80010106);

    EXPECT_EQ(Create(), 0);
    EXPECT_FALSE(set.comInitialized);
    EXPECT_EQ(service.log[1], "CoInitializeSecurity -1 6 2 0");
    EXPECT_NE(kk::FindSnapshotDevice(set, u"two"), nullptr);

    service.log.clear();
    kk::ReleaseSnapshots(set);
    EXPECT_EQ(service.log, std::vector<std::string>{"components Release"});
}

TEST_F(SnapshotFailuresTest, SecurityThatIsSetAlreadyIsNoFailure)
{
    service.results["CoInitializeSecurity"] = Status(0x80010119);

    EXPECT_EQ(Create(), 0);
}

TEST_F(SnapshotFailuresTest, ASuccessWithoutAnObjectIsAFailure)
{
    service.givesComponents = false;

    EXPECT_EQ(Create(), Status(0xC0000001));
    EXPECT_EQ(service.log.back(), "CreateVssBackupComponentsInternal");
    EXPECT_TRUE(set.comInitialized);
}

TEST_F(SnapshotFailuresTest, APositiveResultWithoutAnObjectIsPassedOn)
{
    service.givesComponents = false;
    service.results["CreateVssBackupComponentsInternal"] = 0x1234;

    EXPECT_EQ(Create(), 0x1234);
    EXPECT_EQ(set.components, nullptr);
    EXPECT_EQ(service.log.back(), "CreateVssBackupComponentsInternal");
}

TEST_F(SnapshotFailuresTest, AFailureWithoutAnObjectIsPassedOn)
{
    service.givesComponents = false;
    service.results["CreateVssBackupComponentsInternal"] = Status(0x80070005);

    EXPECT_EQ(Create(), Status(0x80070005));
    EXPECT_EQ(set.components, nullptr);
}

TEST_F(SnapshotFailuresTest, WithoutATableComIsNotEntered)
{
    machine.faults.Fail({.kind = machine::CallKind::Allocate}, 1, 0);

    EXPECT_EQ(Create(), Status(0xC0000017));
    EXPECT_EQ(set.table, nullptr);
    EXPECT_TRUE(service.log.empty());
}

}  // namespace
