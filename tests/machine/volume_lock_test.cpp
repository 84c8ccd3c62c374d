#include "backup/volume_bitmap.h"
#include "disk/disk_controls.h"
#include "tests/machine/native_calls.h"

namespace machine {
namespace {

constexpr uint64_t kStart = kMiB;
constexpr uint64_t kLength = 32 * kMiB;
const std::u16string kVolume = u"\\Device\\HarddiskVolume1";
const std::u16string kDisk = u"\\??\\PhysicalDrive0";

class VolumeLockTest : public MachineTest {
protected:
    VolumeLockTest() { AddNtfsDisk(64 * kMiB, kStart, kLength); }

    static Status Lock(const Handle& handle) { return handle.Control(kk::kFsctlLockVolume, 0).status; }
    static Status Unlock(const Handle& handle) { return handle.Control(kFsctlUnlockVolume, 0).status; }
    static Status Dismount(const Handle& handle) { return handle.Control(kk::kFsctlDismountVolume, 0).status; }
    static Status NtfsData(const Handle& handle) { return handle.Control(kk::kFsctlGetNtfsVolumeData, 96).status; }
    static Status WriteSector(const Handle& handle, uint64_t offset)
    {
        return handle.Write(static_cast<int64_t>(offset), std::vector<uint8_t>(512)).status;
    }
    Volume& TheVolume() { return *machine.FindVolume(0, kStart); }
};

TEST_F(VolumeLockTest, ALockedVolumeOpensForNobodyElse)
{
    const Handle owner(kVolume);

    EXPECT_EQ(Lock(owner), kSuccess);
    EXPECT_EQ(Handle(kVolume).created.status, kAccessDenied);
    EXPECT_EQ(Handle(TheVolume().LinkName()).created.status, kAccessDenied);
    EXPECT_EQ(Lock(owner), kAccessDenied) << "not even twice by the same";
    EXPECT_EQ(NtfsData(owner), kSuccess);
}

TEST_F(VolumeLockTest, TheLockEndsWithTheUnlockOrTheClose)
{
    Handle owner(kVolume);
    EXPECT_EQ(Unlock(owner), kNotLocked);

    ASSERT_EQ(Lock(owner), kSuccess);
    EXPECT_EQ(Unlock(owner), kSuccess);
    EXPECT_EQ(Unlock(owner), kNotLocked);
    EXPECT_EQ(Handle(kVolume).created.status, kSuccess);
    ASSERT_EQ(Lock(owner), kSuccess);
    owner.Close();
    EXPECT_EQ(Handle(kVolume).created.status, kSuccess);
}

TEST_F(VolumeLockTest, OtherHandlesPreventALock)
{
    const Handle first(kVolume);
    Handle second(kVolume, {.access = kSynchronize});

    EXPECT_EQ(Lock(first), kAccessDenied);
    second.Close();
    EXPECT_EQ(Lock(first), kSuccess);
}

TEST_F(VolumeLockTest, HandlesOfAnEarlierMountNeitherPreventALockNorEndIt)
{
    const Handle left(kVolume);
    Handle dismounter(kVolume);
    ASSERT_EQ(Dismount(dismounter), kSuccess);
    dismounter.Close();
    const Handle owner(kVolume);

    EXPECT_EQ(Lock(owner), kSuccess);
    EXPECT_EQ(Unlock(left), kNotLocked);
    EXPECT_EQ(Handle(kVolume).created.status, kAccessDenied);
}

TEST_F(VolumeLockTest, ADismountInvalidatesTheOtherHandles)
{
    const Handle bystander(kVolume, kForWriting);
    const Handle dismounter(kVolume, kForWriting);

    EXPECT_EQ(Dismount(dismounter), kSuccess);
    for (const uint32_t code : {kk::kFsctlGetNtfsVolumeData, kk::kFsctlGetVolumeBitmap, kk::kFsctlExtendVolume,
                                kk::kFsctlShrinkVolume, kk::kFsctlLockVolume, kk::kFsctlDismountVolume}) {
        EXPECT_EQ(bystander.Control(code, 128, std::vector<uint8_t>(24)).status, kVolumeDismounted) << std::hex << code;
    }
    EXPECT_EQ(bystander.Read(0, 512).status, kVolumeDismounted);
    EXPECT_EQ(WriteSector(bystander, 0), kVolumeDismounted);
    EXPECT_EQ(bystander.Flush(), kVolumeDismounted);
    EXPECT_EQ(bystander.QueryVolume(160).status, kVolumeDismounted);
    EXPECT_EQ(bystander.QueryFile(24).status, kVolumeDismounted);
    EXPECT_EQ(bystander.Control(kk::kIoctlVolumeGetVolumeDiskExtents, 512).status, kSuccess);
}

TEST_F(VolumeLockTest, TheDismountingHandleKeepsTheBytesAndTheDriver)
{
    const Handle dismounter(kVolume, kForWriting);

    ASSERT_EQ(Dismount(dismounter), kSuccess);

    EXPECT_EQ(NtfsData(dismounter), kVolumeDismounted);
    EXPECT_EQ(Dismount(dismounter), kVolumeDismounted);
    EXPECT_EQ(dismounter.Read(0, 512).information, 512u);
    EXPECT_EQ(WriteSector(dismounter, 8 * kMiB), kSuccess);
    EXPECT_EQ(dismounter.Flush(), kSuccess);
    EXPECT_EQ(dismounter.Control(kk::kIoctlDiskGetLengthInfo, 8).As<uint64_t>(), kLength);
    EXPECT_EQ(dismounter.Control(kk::kIoctlVolumeGetVolumeDiskExtents, 512).status, kSuccess);
}

TEST_F(VolumeLockTest, TheNextOpenAfterTheDismountersCloseMountsAgain)
{
    const Handle bystander(kVolume);
    Handle dismounter(kVolume);
    ASSERT_EQ(Dismount(dismounter), kSuccess);
    const Handle tooEarly(kVolume);
    EXPECT_EQ(NtfsData(tooEarly), kVolumeDismounted);

    dismounter.Close();

    EXPECT_EQ(NtfsData(Handle(kVolume)), kSuccess);
    EXPECT_EQ(NtfsData(bystander), kVolumeDismounted) << "it belongs to the mount before";
    EXPECT_EQ(NtfsData(tooEarly), kVolumeDismounted);
}

TEST_F(VolumeLockTest, ALockSurvivesADismountAndEndsByItself)
{
    const Handle owner(kVolume);
    ASSERT_EQ(Lock(owner), kSuccess);
    ASSERT_EQ(Dismount(owner), kSuccess);

    EXPECT_EQ(Handle(kVolume).created.status, kAccessDenied);
    EXPECT_EQ(Unlock(owner), kSuccess);
    EXPECT_EQ(Handle(kVolume).created.status, kSuccess);
}

TEST_F(VolumeLockTest, AVolumeThatTheSystemNeedsIsNeitherLockedNorDismounted)
{
    TheVolume().SetInUseBySystem();
    const Handle handle(kVolume);

    EXPECT_EQ(Lock(handle), kAccessDenied);
    EXPECT_EQ(Dismount(handle), kAccessDenied);
    EXPECT_EQ(NtfsData(handle), kSuccess);
    TheVolume().SetInUseBySystem(false);
    EXPECT_EQ(Lock(handle), kSuccess);
}

TEST_F(VolumeLockTest, AWholeDiskAcceptsTheRequestsAndDoesNothing)
{
    const Handle disk(kDisk, kForWriting);
    const Handle volume(kVolume);

    EXPECT_EQ(Lock(disk), kSuccess);
    EXPECT_EQ(Dismount(disk), kSuccess);
    EXPECT_EQ(Unlock(disk), kSuccess);
    EXPECT_EQ(Unlock(disk), kSuccess);
    EXPECT_EQ(NtfsData(volume), kSuccess);
}

class ProtectedVolumeTest : public VolumeLockTest {
protected:
    ProtectedVolumeTest() { machine.switches.mountedWriteProtection = true; }
};

TEST_F(ProtectedVolumeTest, ALockOpensTheSectorsToItsOwnerAndToTheDisk)
{
    const Handle disk(kDisk, kForWriting);
    const Handle owner(kVolume, kForWriting);
    ASSERT_EQ(WriteSector(owner, 8 * kMiB), kAccessDenied);
    ASSERT_EQ(WriteSector(disk, kStart + 8 * kMiB), kAccessDenied);

    ASSERT_EQ(Lock(owner), kSuccess);
    EXPECT_EQ(WriteSector(owner, 8 * kMiB), kSuccess);
    EXPECT_EQ(WriteSector(disk, kStart + 8 * kMiB), kSuccess);

    ASSERT_EQ(Unlock(owner), kSuccess);
    EXPECT_EQ(WriteSector(owner, 8 * kMiB), kAccessDenied);
    EXPECT_EQ(WriteSector(disk, kStart + 8 * kMiB), kAccessDenied);
}

TEST_F(ProtectedVolumeTest, ADismountOpensTheSectorsUntilTheNextMount)
{
    const Handle disk(kDisk, kForWriting);
    const Handle bystander(kVolume, kForWriting);
    Handle dismounter(kVolume, kForWriting);

    ASSERT_EQ(Dismount(dismounter), kSuccess);
    EXPECT_EQ(WriteSector(dismounter, 8 * kMiB), kSuccess);
    EXPECT_EQ(WriteSector(bystander, 8 * kMiB), kVolumeDismounted);
    EXPECT_EQ(WriteSector(disk, kStart + 8 * kMiB), kSuccess);

    dismounter.Close();
    EXPECT_EQ(WriteSector(disk, kStart + 8 * kMiB), kSuccess) << "nobody has mounted it yet";
    const Handle next(kVolume, kForWriting);
    EXPECT_EQ(WriteSector(next, 8 * kMiB), kAccessDenied);
    EXPECT_EQ(WriteSector(disk, kStart + 8 * kMiB), kAccessDenied);
}

TEST_F(ProtectedVolumeTest, OtherVolumesStayProtected)
{
    machine.FindDisk(0)->Gpt({.partitions = {{kStart, kLength}, {40 * kMiB, 16 * kMiB}}});
    machine.FindDisk(0)->Format(40 * kMiB, 16 * kMiB, FileSystem::Ntfs);
    const Handle disk(kDisk, kForWriting);
    const Handle owner(kVolume);
    ASSERT_EQ(Lock(owner), kSuccess);

    EXPECT_EQ(WriteSector(disk, kStart), kSuccess);
    EXPECT_EQ(WriteSector(disk, 40 * kMiB), kAccessDenied);
}

TEST_F(VolumeLockTest, TheBoundaryStaysWhereTheDismountedFileSystemEnded)
{
    machine.switches.ntfsBoundary = true;
    machine.FindDisk(0)->Format(kStart, 16 * kMiB, FileSystem::Ntfs);
    const Handle owner(kVolume, kForWriting);
    ASSERT_EQ(Lock(owner), kSuccess);
    ASSERT_EQ(Dismount(owner), kSuccess);

    machine.FindDisk(0)->Format(kStart, kLength, FileSystem::Ntfs);

    EXPECT_EQ(owner.Read(16 * kMiB, 512).status, kEndOfFile);
    EXPECT_EQ(owner.Write(16 * kMiB, std::vector<uint8_t>(512)).information, 0u);
    ASSERT_EQ(Unlock(owner), kSuccess);
    EXPECT_EQ(owner.Read(16 * kMiB, 512).status, kEndOfFile) << "still dismounted by this handle";
}

TEST_F(VolumeLockTest, TheBoundaryIsFoundAnewOnceTheVolumeIsShared)
{
    machine.switches.ntfsBoundary = true;
    machine.FindDisk(0)->Format(kStart, 16 * kMiB, FileSystem::Ntfs);
    Handle owner(kVolume, kForWriting);
    ASSERT_EQ(Dismount(owner), kSuccess);
    machine.FindDisk(0)->Format(kStart, kLength, FileSystem::Ntfs);

    owner.Close();

    EXPECT_EQ(Handle(kVolume).Read(16 * kMiB, 512).status, kSuccess);
}

TEST_F(VolumeLockTest, FaultsStrikeEachRequestByItsCode)
{
    const Handle handle(kVolume);
    machine.faults.Fail({.code = kk::kFsctlDismountVolume}, 1, static_cast<uint32_t>(kIoDeviceError));

    EXPECT_EQ(Lock(handle), kSuccess);
    EXPECT_EQ(Dismount(handle), kIoDeviceError);
    EXPECT_EQ(NtfsData(handle), kSuccess) << "a struck request does nothing";
    EXPECT_EQ(machine.journal.Count({.kind = CallKind::FsControl, .code = kk::kFsctlLockVolume}), 1u);
    EXPECT_EQ(Unlock(handle), kSuccess);
}

}  // namespace
}  // namespace machine
