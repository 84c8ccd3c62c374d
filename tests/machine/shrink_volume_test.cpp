#include "machine/ntfs_reader.h"
#include "tests/machine/resize_volume_fixture.h"

namespace machine {
namespace {

class ShrinkVolumeTest : public ResizeVolumeTest {};

TEST_F(ShrinkVolumeTest, ClustersAreMovedAndFilesStayWhole)
{
    AddVolume(kPartition);
    const Handle handle(kVolume, kForWriting);

    ASSERT_EQ(Prepare(handle, Sectors(24 * kMiB)), kSuccess);
    EXPECT_EQ(VolumeData().numberSectors, Sectors(kPartition) - 1) << "preparing changes nothing";
    ASSERT_EQ(Commit(handle), kSuccess);

    ExpectASoundVolumeOf(24 * kMiB);
    EXPECT_EQ(handle.Control(kk::kIoctlDiskGetLengthInfo, 8).As<uint64_t>(), kPartition) << "not the partition";
}

TEST_F(ShrinkVolumeTest, AFileSystemOfLargeSectorsShrinks)
{
    AddVolume(kPartition, 4096);
    const Handle handle(kVolume, kForWriting);

    ASSERT_EQ(Prepare(handle, Sectors(24 * kMiB)), kSuccess);
    ASSERT_EQ(Commit(handle), kSuccess);

    ExpectASoundVolumeOf(24 * kMiB);
}

TEST_F(ShrinkVolumeTest, WhatShrankGrowsAgain)
{
    AddVolume(kPartition);
    const Handle handle(kVolume, kForWriting);
    ASSERT_EQ(Prepare(handle, Sectors(20 * kMiB) + 5), kSuccess);
    ASSERT_EQ(Commit(handle), kSuccess);
    ExpectASoundVolumeOf(20 * kMiB + 5 * 512);

    ASSERT_EQ(Extend(handle, Sectors(kPartition)), kSuccess);

    ExpectASoundVolumeOf(kPartition);
}

TEST_F(ShrinkVolumeTest, WhenNothingMovesAUsedTailRefuses)
{
    machine.switches.shrinkMovesNothing = true;
    AddVolume(kPartition);
    const Handle handle(kVolume, kForWriting);
    const std::vector<uint8_t> before = TheDisk().ReadBytes(kStart, kPartition);

    ASSERT_EQ(Prepare(handle, Sectors(16 * kMiB)), kSuccess);
    EXPECT_EQ(Commit(handle), kAlreadyCommitted);

    EXPECT_EQ(TheDisk().ReadBytes(kStart, kPartition), before);
    EXPECT_EQ(Commit(handle), kAlreadyCommitted) << "the announcement is still there";
}

TEST_F(ShrinkVolumeTest, WhenNothingMovesTheLastUsedClusterIsTheLimit)
{
    machine.switches.shrinkMovesNothing = true;
    AddVolume(kPartition);
    NtfsReader reader(*machine.FindVolume(0, kStart));
    ASSERT_TRUE(reader.Open());
    const uint64_t usedEnd = reader.FindUsedEnd().value() * 4096;
    const Handle handle(kVolume, kForWriting);

    ASSERT_EQ(Prepare(handle, Sectors(usedEnd)), kSuccess);
    EXPECT_EQ(Commit(handle), kAlreadyCommitted) << "the copy of the boot sector would lie in it";
    ASSERT_EQ(Prepare(handle, Sectors(usedEnd) + 1), kSuccess);
    EXPECT_EQ(Commit(handle), kSuccess);

    ExpectASoundVolumeOf(usedEnd + 512);
}

TEST_F(ShrinkVolumeTest, StrictMachinesMoveNothing)
{
    EXPECT_FALSE(machine.switches.shrinkMovesNothing);

    EXPECT_TRUE(machine.Strict().switches.shrinkMovesNothing);
}

TEST_F(ShrinkVolumeTest, ContentsThatDoNotFitAreFound)
{
    AddVolume(kPartition);
    const Handle handle(kVolume, kForWriting);

    for (const int64_t sectors : {Sectors(10 * kMiB), int64_t{1000}, int64_t{1}}) {
        ASSERT_EQ(Prepare(handle, sectors), kSuccess);
        EXPECT_EQ(Commit(handle), kDiskFull) << sectors;
    }

    ExpectASoundVolumeOf(kPartition);
}

TEST_F(ShrinkVolumeTest, ShrinkingToWhatItIsSucceedsAndChangesNothing)
{
    AddVolume(kPartition);
    const Handle handle(kVolume, kForWriting);
    const std::vector<uint8_t> before = TheDisk().ReadBytes(kStart, kPartition);

    EXPECT_EQ(Prepare(handle, Sectors(kPartition)), kSuccess);
    EXPECT_EQ(Commit(handle), kSuccess);

    EXPECT_EQ(TheDisk().ReadBytes(kStart, kPartition), before);
}

TEST_F(ShrinkVolumeTest, RequestsThatMakeNoSenseAreRefused)
{
    AddVolume(32 * kMiB);
    const Handle handle(kVolume, kForWriting);
    const int64_t target = Sectors(24 * kMiB);

    EXPECT_EQ(Prepare(handle, 0), kInvalidParameter);
    EXPECT_EQ(Prepare(handle, -8), kInvalidParameter);
    EXPECT_EQ(Prepare(handle, Sectors(32 * kMiB) + 1), kInvalidParameter);
    EXPECT_EQ(Shrink(handle, kk::ShrinkRequest::Prepare, target, 1), kInvalidParameter);
    EXPECT_EQ(Shrink(handle, kk::ShrinkRequest{4}, target), kInvalidParameter);
    EXPECT_EQ(handle.Control(kk::kFsctlShrinkVolume, 0, std::vector<uint8_t>(23)).status, kInvalidParameter);
    EXPECT_EQ(Commit(handle), kInvalidParameter) << "nothing was announced";
    EXPECT_EQ(Shrink(handle, kShrinkAbort), kInvalidParameter);
    ExpectASoundVolumeOf(32 * kMiB);
}

TEST_F(ShrinkVolumeTest, AnAnnouncementBelongsToItsHandle)
{
    AddVolume(kPartition);
    Handle announcer(kVolume, kForWriting);
    const Handle other(kVolume, kForWriting);
    ASSERT_EQ(Prepare(announcer, Sectors(32 * kMiB)), kSuccess);

    EXPECT_EQ(Commit(other), kInvalidParameter);
    EXPECT_EQ(Shrink(other, kShrinkAbort), kInvalidParameter);
    EXPECT_EQ(Prepare(other, Sectors(32 * kMiB)), kInvalidParameter);
    announcer.Close();
    EXPECT_EQ(Prepare(other, Sectors(32 * kMiB)), kSuccess) << "the close gave it up";
}

TEST_F(ShrinkVolumeTest, AnAnnouncementIsGivenUpOrReplacedOrDone)
{
    AddVolume(kPartition);
    const Handle handle(kVolume, kForWriting);

    ASSERT_EQ(Prepare(handle, Sectors(32 * kMiB)), kSuccess);
    EXPECT_EQ(Shrink(handle, kShrinkAbort), kSuccess);
    EXPECT_EQ(Commit(handle), kInvalidParameter);

    ASSERT_EQ(Prepare(handle, Sectors(32 * kMiB)), kSuccess);
    ASSERT_EQ(Prepare(handle, Sectors(40 * kMiB)), kSuccess);
    EXPECT_EQ(Commit(handle), kSuccess);
    EXPECT_EQ(Commit(handle), kInvalidParameter);
    ExpectASoundVolumeOf(40 * kMiB);
}

TEST_F(ShrinkVolumeTest, ADismountGivesAnAnnouncementUp)
{
    AddVolume(kPartition);
    const Handle announcer(kVolume, kForWriting);
    ASSERT_EQ(Prepare(announcer, Sectors(32 * kMiB)), kSuccess);
    Handle dismounter(kVolume, kForWriting);
    ASSERT_EQ(dismounter.Control(kk::kFsctlDismountVolume, 0).status, kSuccess);
    EXPECT_EQ(Commit(announcer), kVolumeDismounted);
    dismounter.Close();

    EXPECT_EQ(Prepare(Handle(kVolume, kForWriting), Sectors(32 * kMiB)), kSuccess);
}

TEST_F(ShrinkVolumeTest, OnlyNtfsShrinksAndAVolumeWithoutAFileSystemAccepts)
{
    Disk& disk = machine.AddDisk(128 * kMiB).Gpt({.partitions = {{kStart, kPartition}}});
    const Handle handle(kVolume, kForWriting);

    EXPECT_EQ(Prepare(handle, Sectors(kPartition) + 1), kInvalidParameter);
    EXPECT_EQ(Prepare(handle, Sectors(32 * kMiB)), kSuccess);
    EXPECT_EQ(Commit(handle), kSuccess);
    EXPECT_EQ(Commit(handle), kInvalidParameter);
    disk.Format(kStart, 16 * kMiB, FileSystem::Fat16);
    EXPECT_EQ(Prepare(handle, Sectors(8 * kMiB)), kInvalidDeviceRequest);
    EXPECT_EQ(Commit(handle), kInvalidDeviceRequest);
}

TEST_F(ShrinkVolumeTest, FaultsStrikeTheRequestsByCodeAndCount)
{
    AddVolume(kPartition);
    const Handle handle(kVolume, kForWriting);
    machine.faults.Fail({.code = kk::kFsctlShrinkVolume}, 2, static_cast<uint32_t>(kIoDeviceError));

    ASSERT_EQ(Prepare(handle, Sectors(32 * kMiB)), kSuccess);
    EXPECT_EQ(Commit(handle), kIoDeviceError);
    EXPECT_EQ(VolumeData().numberSectors, Sectors(kPartition) - 1);
    EXPECT_EQ(Commit(handle), kSuccess);
}

}  // namespace
}  // namespace machine
