#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "machine/snapshot_service.h"
#include "snapshot_fixture.h"

namespace machine {
namespace {

using test::SnapshotTest;

/// The method in a slot of an object's table, called as one that takes nothing but the object.
HResult CallSlot(void* object, size_t slot)
{
    using Method = HResult(KK_CALL*)(void*);
    const void* table = nullptr;
    Method method = nullptr;
    std::memcpy(&table, object, sizeof(table));
    std::memcpy(&method, static_cast<const uint8_t*>(table) + slot * sizeof(method), sizeof(method));
    return method(object);
}

TEST_F(SnapshotTest, JoiningTheSameApartmentAgainIsASuccessThatCounts)
{
    EXPECT_EQ(JoinCom(), kOk);
    EXPECT_EQ(JoinCom(), kFalse);
    LeaveCom();
    LeaveCom();
    EXPECT_EQ(JoinCom(), kOk);
    LeaveCom();
}

TEST_F(SnapshotTest, JoiningAnotherApartmentChangesTheMode)
{
    service_.apartments.Preset(Apartment::SingleThreaded);

    EXPECT_EQ(JoinCom(), kk::kRpcEChangedMode);
    EXPECT_EQ(JoinCom(2), kFalse);
    LeaveCom();
}

TEST_F(SnapshotTest, AThreadInAnotherApartmentCanUseObjects)
{
    service_.apartments.Preset(Apartment::SingleThreaded);

    ASSERT_EQ(Create(), 0);

    EXPECT_EQ(Methods().release(components_), 0u);
}

TEST_F(SnapshotTest, ApartmentsBelongToThreads)
{
    ASSERT_EQ(JoinCom(), kOk);

    std::thread([this] {
        EXPECT_EQ(JoinCom(2), kOk);
        LeaveCom();
    }).join();

    LeaveCom();
}

TEST_F(SnapshotTest, WrongArgumentsOfJoiningAreRefused)
{
    EXPECT_EQ(JoinCom(0x100), kInvalidArgument);
    EXPECT_EQ(Entry<kk::CoInitializeExFn>(u"ole32.dll", "CoInitializeEx")(this, 0), kInvalidArgument);
}

TEST_F(SnapshotTest, SecurityIsSetOnce)
{
    EXPECT_EQ(SetSecurity(), kComNotInitialized);
    ASSERT_EQ(JoinCom(), kOk);
    EXPECT_EQ(SetSecurity(), kOk);
    EXPECT_EQ(SetSecurity(), kComTooLate);
    LeaveCom();
}

TEST_F(SnapshotTest, ObjectsNeedCom)
{
    EXPECT_EQ(Create(), kComNotInitialized);
    EXPECT_EQ(components_, nullptr);
}

TEST_F(SnapshotTest, CreationEndsAsTheTestWishes)
{
    ASSERT_EQ(JoinCom(), kOk);
    service_.creation = {.result = AsHResult(0x80070005)};
    EXPECT_EQ(Create(), AsHResult(0x80070005));
    service_.creation = {.result = 1, .givesObject = false};
    EXPECT_EQ(Create(), 1);
    EXPECT_EQ(components_, nullptr);
    LeaveCom();
}

TEST_F(SnapshotTest, EveryUnusedSlotTellsOnItsCaller)
{
    ASSERT_EQ(JoinCom(), kOk);
    ASSERT_EQ(Create(), 0);
    for (const size_t slot : {0u, 3u, 4u, 7u, 8u, 10u, 13u, 15u, 34u, 39u, 41u, 43u, 50u}) {
        EXPECT_EQ(CallSlot(components_, slot), kNotImplemented);
        expectedBreaches_.push_back("call of an unexpected method of IVssBackupComponents, slot " +
                                    std::to_string(slot));
    }
    ReleaseAll();
}

TEST_F(SnapshotTest, UnusedSlotsOfOperationsTellToo)
{
    kk::VssAsync* async = nullptr;
    ASSERT_EQ(JoinCom(), kOk);
    ASSERT_EQ(Create(), 0);
    ASSERT_EQ(Methods().initializeForBackup(components_, nullptr), 0);
    ASSERT_EQ(Methods().gatherWriterMetadata(components_, &async), 0);

    CallSlot(async, 3);

    expectedBreaches_ = {"call of an unexpected method of IVssAsync, slot 3"};
    EXPECT_EQ(Finish(async), kVssAsyncFinished);
    ReleaseAll();
}

TEST_F(SnapshotTest, ReferencesAreCounted)
{
    ASSERT_EQ(JoinCom(), kOk);
    ASSERT_EQ(Create(), 0);

    EXPECT_EQ(CallSlot(components_, 1), 2);
    EXPECT_EQ(Methods().release(components_), 1u);
    EXPECT_EQ(Methods().release(components_), 0u);
    LeaveCom();
}

TEST_F(SnapshotTest, AReleaseTooManyIsABreach)
{
    ASSERT_EQ(JoinCom(), kOk);
    ASSERT_EQ(Create(), 0);
    EXPECT_EQ(Methods().release(components_), 0u);

    CallSlot(components_, 2);

    expectedBreaches_ = {"call of a method of a released IVssBackupComponents, slot 2"};
    LeaveCom();
}

TEST_F(SnapshotTest, ObjectsThatAreNotReleasedAreBreaches)
{
    kk::VssAsync* async = nullptr;
    ASSERT_EQ(JoinCom(), kOk);
    ASSERT_EQ(Create(), 0);
    ASSERT_EQ(Methods().initializeForBackup(components_, nullptr), 0);
    ASSERT_EQ(Methods().gatherWriterMetadata(components_, &async), 0);

    EXPECT_EQ(machine_->Imbalances().size(), 3u);

    machine_.reset();
    EXPECT_FALSE(breaches_.empty());
    breaches_.clear();
}

TEST_F(SnapshotTest, StringsThatAreNotFreedAreBreaches)
{
    const kk::Guid id = TakeSnapshot();
    kk::VssSnapshotProperties properties = {};
    ASSERT_EQ(Methods().getSnapshotProperties(components_, id, &properties), 0);
    ReleaseAll();

    EXPECT_EQ(machine_->Imbalances().size(), 4u);

    FreeProperties(properties);
    EXPECT_TRUE(machine_->Imbalances().empty());
}

TEST_F(SnapshotTest, FreeingStringsTwiceIsABreach)
{
    const kk::Guid id = TakeSnapshot();
    kk::VssSnapshotProperties properties = {};
    ASSERT_EQ(Methods().getSnapshotProperties(components_, id, &properties), 0);
    kk::VssSnapshotProperties copy = properties;
    copy.originalVolumeName = copy.originatingMachine = copy.serviceMachine = nullptr;
    FreeProperties(properties);
    FreeProperties(properties);
    EXPECT_TRUE(breaches_.empty());

    FreeProperties(copy);

    EXPECT_EQ(breaches_.size(), 1u);
    breaches_.clear();
    ReleaseAll();
}

TEST_F(SnapshotTest, LeavingComTooOftenIsABreach)
{
    LeaveCom();

    expectedBreaches_ = {"CoUninitialize without a CoInitializeEx before it"};
}

TEST_F(SnapshotTest, LeavingComBeforeTheObjectsIsABreach)
{
    ASSERT_EQ(JoinCom(), kOk);
    ASSERT_EQ(Create(), 0);
    LeaveCom();

    expectedBreaches_ = {"CoUninitialize while snapshot objects are alive"};
    EXPECT_EQ(Methods().release(components_), 0u);
}

}  // namespace
}  // namespace machine
