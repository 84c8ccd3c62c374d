#include "machine/snapshot_service.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "disk/volume_controls.h"
#include "snapshot_fixture.h"

namespace machine {
namespace {

using test::kMiB;
using test::SnapshotTest;

TEST_F(SnapshotTest, ASnapshotSetOfTwoVolumesGivesTwoDevices)
{
    kk::Guid first = {};
    kk::Guid second = {};
    StartSet();
    ASSERT_EQ(Add(FirstVolume().Path(), first), 0);
    ASSERT_EQ(Add(SecondVolume().Path(), second), 0);
    EXPECT_NE(first, second);
    TakeSet();

    kk::VssSnapshotProperties properties = {};
    ASSERT_EQ(Methods().getSnapshotProperties(components_, second, &properties), 0);
    EXPECT_EQ(std::u16string(properties.snapshotDeviceObject), u"\\\\?\\GLOBALROOT\\Device\\HarddiskVolumeShadowCopy2");
    EXPECT_EQ(properties.originalVolumeName, SecondVolume().Path());
    EXPECT_EQ(properties.snapshotId, second);
    EXPECT_EQ(properties.snapshotsCount, 2);
    EXPECT_EQ(properties.creationTimestamp, machine_->clock.Now());
    FreeProperties(properties);
    EXPECT_EQ(properties.snapshotDeviceObject, nullptr);
    EXPECT_EQ(service_.Snapshots().size(), 2u);
    ReleaseAll();
    EXPECT_TRUE(service_.Snapshots().empty());
}

TEST_F(SnapshotTest, TheDeviceGoesWithTheObject)
{
    TakeSnapshot();
    kk::NtHandle handle = nullptr;
    const std::u16string_view name = u"\\??\\GLOBALROOT\\Device\\HarddiskVolumeShadowCopy1";

    ASSERT_EQ(Open(name, kk::kFileGenericRead, handle), 0);
    EXPECT_EQ(NtClose(handle), 0);
    ReleaseAll();

    EXPECT_LT(Open(name, kk::kFileGenericRead, handle), 0);
}

TEST_F(SnapshotTest, TheDeviceShowsTheVolumeAsItWas)
{
    service_.OnSnapshotTaken([this] {
        TheDisk().WriteBytes(kMiB, std::vector<uint8_t>(4096, 0x99));
        TheDisk().WriteBytes(33 * kMiB - 512, std::vector<uint8_t>(512, 0x99));
    });
    TakeSnapshot();
    kk::NtHandle handle = nullptr;
    ASSERT_EQ(Open(u"\\Device\\HarddiskVolumeShadowCopy1", kk::kFileGenericRead, handle), 0);
    std::vector<uint8_t> data(1024);
    kk::IoStatusBlock ioStatus = {};
    int64_t offset = 0;

    ASSERT_EQ(NtReadFile(handle, nullptr, nullptr, nullptr, &ioStatus, data.data(), 1024, &offset, nullptr), 0);
    EXPECT_EQ(data[0], 0x11);
    EXPECT_EQ(data[511], 0x11);
    EXPECT_EQ(data[512], 0);
    offset = 32 * kMiB - 512;
    ioStatus = {};
    ASSERT_EQ(NtReadFile(handle, nullptr, nullptr, nullptr, &ioStatus, data.data(), 512, &offset, nullptr), 0);
    EXPECT_EQ(data[0], 0);

    EXPECT_EQ(TheDisk().ReadBytes(kMiB, 1)[0], 0x99);
    EXPECT_EQ(service_.Snapshots()[0]->view->KeptBytes(), 2 * 65536u);
    EXPECT_EQ(NtClose(handle), 0);
    ReleaseAll();
}

TEST_F(SnapshotTest, TheDeviceIsWriteProtected)
{
    TakeSnapshot();
    kk::NtHandle handle = nullptr;
    ASSERT_EQ(Open(u"\\Device\\HarddiskVolumeShadowCopy1", kk::kFileGenericRead | kk::kFileGenericWrite, handle), 0);
    const std::vector<uint8_t> data(512);
    kk::IoStatusBlock ioStatus = {};
    const int64_t offset = 0;

    EXPECT_EQ(NtWriteFile(handle, nullptr, nullptr, nullptr, &ioStatus, data.data(), 512, &offset, nullptr),
              kMediaWriteProtected);

    EXPECT_EQ(NtClose(handle), 0);
    ReleaseAll();
}

TEST_F(SnapshotTest, TheDeviceAnswersLikeItsVolume)
{
    TheDisk().Format(kMiB, 32 * kMiB, FileSystem::Ntfs);
    service_.OnSnapshotTaken([this] { TheDisk().WriteBytes(kMiB, std::vector<uint8_t>(32 * kMiB, 0xFF)); });
    TakeSnapshot();
    kk::NtHandle handle = nullptr;
    ASSERT_EQ(Open(u"\\Device\\HarddiskVolumeShadowCopy1", kk::kFileGenericRead, handle), 0);
    kk::IoStatusBlock ioStatus = {};
    kk::GetLengthInformation length = {};
    kk::NtfsVolumeData ntfs = {};

    EXPECT_EQ(NtDeviceIoControlFile(handle, nullptr, nullptr, nullptr, &ioStatus, kk::kIoctlDiskGetLengthInfo, nullptr,
                                    0, &length, sizeof(length)),
              0);
    EXPECT_EQ(length.length, static_cast<int64_t>(32 * kMiB));
    ioStatus = {};
    EXPECT_EQ(NtFsControlFile(handle, nullptr, nullptr, nullptr, &ioStatus, kk::kFsctlGetNtfsVolumeData, nullptr, 0,
                              &ntfs, sizeof(ntfs)),
              0);
    EXPECT_EQ(ntfs.numberSectors, static_cast<int64_t>(32 * kMiB / 512 - 1));

    EXPECT_EQ(NtClose(handle), 0);
    ReleaseAll();
}

TEST_F(SnapshotTest, TwoSnapshotsOfOneVolumeKeepTheirOwnMoments)
{
    TakeSnapshot();
    kk::VssBackupComponents* const first = components_;
    TheDisk().WriteBytes(kMiB, std::vector<uint8_t>(512, 0x33));
    TakeSnapshot();
    TheDisk().WriteBytes(kMiB, std::vector<uint8_t>(512, 0x44));

    std::vector<uint8_t> data(512);
    ASSERT_TRUE(service_.Snapshots()[0]->view->Read(0, data));
    EXPECT_EQ(data[0], 0x11);
    ASSERT_TRUE(service_.Snapshots()[1]->view->Read(0, data));
    EXPECT_EQ(data[0], 0x33);
    ReleaseAll();
    components_ = first;
    ReleaseAll();
}

TEST_F(SnapshotTest, VolumeNamesAreChecked)
{
    kk::Guid id = {};
    StartSet();
    std::u16string noBackslash = FirstVolume().Path();
    noBackslash.pop_back();

    EXPECT_EQ(Add(noBackslash, id), kInvalidArgument);
    EXPECT_EQ(Add(u"C:\\", id), kInvalidArgument);
    EXPECT_EQ(Add(u"\\\\?\\Volume{00000000-0000-0000-0000-000000000000}\\", id), kVssObjectNotFound);
    EXPECT_EQ(Add(FirstVolume().Path(), id), 0);
    EXPECT_EQ(Add(FirstVolume().Path(), id), kVssObjectAlreadyExists);
    EXPECT_EQ(Methods().addToSnapshotSet(components_, SecondVolume().Path().c_str(), kk::Guid{1, 0, 0, {}}, &id),
              kVssProviderNotRegistered);
    EXPECT_EQ(Methods().addToSnapshotSet(components_, nullptr, kk::Guid{}, &id), kInvalidArgument);
    ReleaseAll();
}

TEST_F(SnapshotTest, CallsOutOfOrderAreABadState)
{
    kk::VssAsync* async = nullptr;
    kk::Guid id = {};
    kk::VssSnapshotProperties properties = {};
    ASSERT_EQ(JoinCom(), 0);
    ASSERT_EQ(Create(), 0);

    EXPECT_EQ(Methods().setBackupState(components_, true, true, 1, false), kVssBadState);
    EXPECT_EQ(Methods().setContext(components_, 0), kVssBadState);
    EXPECT_EQ(Methods().gatherWriterMetadata(components_, &async), kVssBadState);
    ASSERT_EQ(Methods().initializeForBackup(components_, nullptr), 0);
    EXPECT_EQ(Methods().initializeForBackup(components_, nullptr), kVssBadState);
    EXPECT_EQ(Methods().setContext(components_, 29), kVssUnsupportedContext);
    ASSERT_EQ(Methods().setContext(components_, 0), 0);
    EXPECT_EQ(Methods().setContext(components_, 0), kVssBadState);
    EXPECT_EQ(Methods().startSnapshotSet(components_, &id), kVssBadState);
    EXPECT_EQ(Add(FirstVolume().Path(), id), kVssBadState);
    ASSERT_EQ(Methods().gatherWriterMetadata(components_, &async), 0);
    EXPECT_EQ(Methods().startSnapshotSet(components_, &id), kVssBadState);  // nobody has waited
    EXPECT_EQ(Finish(async), kVssAsyncFinished);
    EXPECT_EQ(Methods().prepareForBackup(components_, &async), kVssBadState);  // no backup state
    ASSERT_EQ(Methods().setBackupState(components_, true, true, 1, false), 0);
    ASSERT_EQ(Methods().startSnapshotSet(components_, &id), 0);
    EXPECT_EQ(Methods().startSnapshotSet(components_, &id), kVssSetInProgress);
    EXPECT_EQ(Methods().doSnapshotSet(components_, &async), kVssBadState);
    EXPECT_EQ(Methods().getSnapshotProperties(components_, id, &properties), kVssBadState);
    ReleaseAll();
}

TEST_F(SnapshotTest, OnlyOneSetIsInProgressAtATime)
{
    StartSet();
    kk::VssBackupComponents* const first = components_;
    kk::VssAsync* async = nullptr;
    kk::Guid id = {};
    ASSERT_EQ(Create(), 0);
    ASSERT_EQ(Methods().initializeForBackup(components_, nullptr), 0);
    ASSERT_EQ(Methods().gatherWriterMetadata(components_, &async), 0);
    ASSERT_EQ(Finish(async), kVssAsyncFinished);

    EXPECT_EQ(Methods().startSnapshotSet(components_, &id), kVssSetInProgress);
    first->methods->release(first);
    EXPECT_EQ(Methods().startSnapshotSet(components_, &id), 0);
    ReleaseAll();
}

TEST_F(SnapshotTest, AStatusThatIsAskedForBeforeWaitingIsPending)
{
    kk::VssAsync* async = nullptr;
    kk::HResult result = 0;
    ASSERT_EQ(JoinCom(), 0);
    ASSERT_EQ(Create(), 0);
    ASSERT_EQ(Methods().initializeForBackup(components_, nullptr), 0);
    ASSERT_EQ(Methods().gatherWriterMetadata(components_, &async), 0);

    EXPECT_EQ(async->methods->queryStatus(async, &result, nullptr), 0);

    EXPECT_EQ(result, kVssAsyncPending);
    EXPECT_EQ(async->methods->release(async), 0u);
    ReleaseAll();
}

TEST_F(SnapshotTest, OperationsEndAsTheTestWishes)
{
    kk::VssAsync* async = reinterpret_cast<kk::VssAsync*>(1);
    kk::HResult result = 0;
    ASSERT_EQ(JoinCom(), 0);
    ASSERT_EQ(Create(), 0);
    ASSERT_EQ(Methods().initializeForBackup(components_, nullptr), 0);
    AsyncBehaviour& behaviour = service_.Operation("GatherWriterMetadata");

    behaviour = {.callResult = -5};
    EXPECT_EQ(Methods().gatherWriterMetadata(components_, &async), -5);
    EXPECT_EQ(async, reinterpret_cast<kk::VssAsync*>(1));
    behaviour = {.callResult = -5, .givesObject = true};
    EXPECT_EQ(Methods().gatherWriterMetadata(components_, &async), -5);
    EXPECT_EQ(Finish(async), kVssAsyncFinished);
    behaviour = {.waitResult = -6, .queryResult = -7};
    EXPECT_EQ(Methods().gatherWriterMetadata(components_, &async), 0);
    EXPECT_EQ(async->methods->wait(async, 0), -6);
    EXPECT_EQ(async->methods->queryStatus(async, &result, nullptr), -7);
    EXPECT_EQ(async->methods->release(async), 0u);
    ReleaseAll();
}

TEST_F(SnapshotTest, ASuccessfulCallMayGiveNoObject)
{
    kk::VssAsync* async = reinterpret_cast<kk::VssAsync*>(1);
    ASSERT_EQ(JoinCom(), 0);
    ASSERT_EQ(Create(), 0);
    ASSERT_EQ(Methods().initializeForBackup(components_, nullptr), 0);
    service_.Operation("GatherWriterMetadata").givesObject = false;

    EXPECT_EQ(Methods().gatherWriterMetadata(components_, &async), 0);

    EXPECT_EQ(async, nullptr);
    ReleaseAll();
}

TEST_F(SnapshotTest, ACancelledSetHasNoSnapshots)
{
    kk::VssAsync* async = nullptr;
    kk::Guid id = {};
    kk::VssSnapshotProperties properties = {};
    service_.Operation("DoSnapshotSet").reported = kVssAsyncCancelled;
    StartSet();
    ASSERT_EQ(Add(FirstVolume().Path(), id), 0);
    ASSERT_EQ(Methods().prepareForBackup(components_, &async), 0);
    ASSERT_EQ(Finish(async), kVssAsyncFinished);

    ASSERT_EQ(Methods().doSnapshotSet(components_, &async), 0);
    EXPECT_EQ(Finish(async), kVssAsyncCancelled);

    EXPECT_EQ(Methods().getSnapshotProperties(components_, id, &properties), kVssObjectNotFound);
    EXPECT_TRUE(service_.Snapshots().empty());
    ReleaseAll();
}

TEST_F(SnapshotTest, AVolumeMayHaveNoDeviceNameOrAnother)
{
    const kk::Guid id = TakeSnapshot();
    kk::VssSnapshotProperties properties = {};

    service_.OmitDeviceName(FirstVolume());
    ASSERT_EQ(Methods().getSnapshotProperties(components_, id, &properties), 0);
    EXPECT_EQ(properties.snapshotDeviceObject, nullptr);
    EXPECT_NE(properties.originalVolumeName, nullptr);
    FreeProperties(properties);
    service_.SetDeviceName(FirstVolume(), u"\\\\?\\elsewhere");
    ASSERT_EQ(Methods().getSnapshotProperties(components_, id, &properties), 0);
    EXPECT_EQ(std::u16string(properties.snapshotDeviceObject), u"\\\\?\\elsewhere");
    FreeProperties(properties);
    ReleaseAll();
}

TEST_F(SnapshotTest, AFaultKeepsAMethodFromHappening)
{
    kk::Guid id = {};
    machine_->faults.Fail({.name = "IVssBackupComponents::AddToSnapshotSet"}, 1, 0x8004230C);
    StartSet();

    EXPECT_EQ(Add(FirstVolume().Path(), id), AsHResult(0x8004230C));

    EXPECT_EQ(id, kk::Guid{});
    EXPECT_EQ(Add(FirstVolume().Path(), id), 0);
    ReleaseAll();
}

TEST_F(SnapshotTest, EveryCallIsInTheJournal)
{
    kk::Guid id = {};
    StartSet();
    ASSERT_EQ(Add(FirstVolume().Path(), id), 0);
    ReleaseAll();

    const Journal& journal = machine_->journal;
    EXPECT_EQ(journal.First({.name = "CoInitializeEx"})->options, 0u);
    EXPECT_EQ(journal.First({.name = "IVssBackupComponents::SetBackupState"})->options, 3u);
    EXPECT_EQ(journal.First({.name = "IVssBackupComponents::SetBackupState"})->code, 1u);
    EXPECT_EQ(journal.First({.name = "IVssBackupComponents::SetContext"})->code, 0u);
    EXPECT_EQ(journal.First({.name = "IVssBackupComponents::StartSnapshotSet"})->input, std::vector<uint8_t>(16));
    const CallRecord* const added = journal.First({.name = "IVssBackupComponents::AddToSnapshotSet"});
    EXPECT_EQ(added->input, std::vector<uint8_t>(16));
    EXPECT_NE(added->object.find("Volume{"), std::string::npos);
    EXPECT_EQ(journal.First({.name = "IVssAsync::Wait"})->object, "GatherWriterMetadata");
    EXPECT_EQ(journal.First({.name = "IVssAsync::Wait"})->length, 0xFFFFFFFFu);
    EXPECT_TRUE(journal.Before({.name = "IVssBackupComponents::Release"}, {.name = "CoUninitialize"}));
}

}  // namespace
}  // namespace machine
