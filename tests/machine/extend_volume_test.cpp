#include "disk/disk_controls.h"
#include "machine/snapshot_view.h"
#include "tests/machine/resize_volume_fixture.h"

namespace machine {
namespace {

class ExtendVolumeTest : public ResizeVolumeTest {};

TEST_F(ExtendVolumeTest, TheFileSystemFillsThePartition)
{
    AddVolume(32 * kMiB);
    const int64_t freeBefore = VolumeData().freeClusters;

    ASSERT_EQ(Extend(Handle(kVolume, kForWriting), Sectors(kPartition)), kSuccess);

    ExpectASoundVolumeOf(kPartition);
    EXPECT_GT(VolumeData().freeClusters, freeBefore + 8000);
}

TEST_F(ExtendVolumeTest, AFileSystemOfLargeSectorsFillsThePartition)
{
    AddVolume(32 * kMiB, 4096);

    ASSERT_EQ(Extend(Handle(kVolume, kForWriting), Sectors(kPartition)), kSuccess);

    ExpectASoundVolumeOf(kPartition);
}

TEST_F(ExtendVolumeTest, AnyNumberOfSectorsWillDo)
{
    AddVolume(32 * kMiB);

    ASSERT_EQ(Extend(Handle(kVolume, kForWriting), Sectors(40 * kMiB) + 3), kSuccess);

    ExpectASoundVolumeOf(40 * kMiB + 3 * 512);
}

TEST_F(ExtendVolumeTest, TheGainMustBeAClusterAndFitThePartition)
{
    AddVolume(32 * kMiB);
    const Handle handle(kVolume, kForWriting);

    EXPECT_EQ(Extend(handle, 0), kInvalidParameter);
    EXPECT_EQ(Extend(handle, -1), kInvalidParameter);
    EXPECT_EQ(Extend(handle, INT64_MAX), kInvalidParameter);
    EXPECT_EQ(Extend(handle, Sectors(16 * kMiB)), kInvalidParameter);
    EXPECT_EQ(Extend(handle, Sectors(32 * kMiB)), kInvalidParameter);
    EXPECT_EQ(Extend(handle, Sectors(kPartition) + 1), kInvalidParameter);
    EXPECT_EQ(handle.Control(kk::kFsctlExtendVolume, 0, std::vector<uint8_t>(7)).status, kInvalidParameter);
    ExpectASoundVolumeOf(32 * kMiB);

    EXPECT_EQ(Extend(handle, Sectors(32 * kMiB) + 1), kSuccess) << "that makes the last cluster whole";
    ExpectASoundVolumeOf(32 * kMiB + 512);
}

TEST_F(ExtendVolumeTest, OnlyNtfsGrowsAndAVolumeWithoutAFileSystemAccepts)
{
    Disk& disk = machine.AddDisk(128 * kMiB).Gpt({.partitions = {{kStart, kPartition}}});
    const Handle handle(kVolume, kForWriting);

    EXPECT_EQ(Extend(handle, 1), kSuccess);
    disk.Format(kStart, 16 * kMiB, FileSystem::Fat16);
    EXPECT_EQ(Extend(handle, 64 * 2048), kInvalidDeviceRequest);
    disk.Format(kStart, 16 * kMiB, FileSystem::Exfat);
    EXPECT_EQ(Extend(handle, 64 * 2048), kInvalidDeviceRequest);
}

TEST_F(ExtendVolumeTest, AFileSystemThatTheToolsDoNotTrustStaysAsItIs)
{
    AddVolume(32 * kMiB);
    const uint64_t fileTable = kStart + static_cast<uint64_t>(VolumeData().mftStartLcn) * 4096;
    TheDisk().WriteBytes(fileTable + 1024, std::vector<uint8_t>(1024));
    const std::vector<uint8_t> before = TheDisk().ReadBytes(kStart, kPartition);

    EXPECT_EQ(Extend(Handle(kVolume, kForWriting), Sectors(kPartition)), kDiskCorruptError);

    EXPECT_EQ(TheDisk().ReadBytes(kStart, kPartition), before);
}

TEST_F(ExtendVolumeTest, AFileSystemLargerThanItsPartitionIsCorrupt)
{
    AddVolume(32 * kMiB);
    TheDisk().Gpt({.partitions = {{kStart, 16 * kMiB}}});
    const Handle handle(kVolume, kForWriting);

    EXPECT_EQ(Extend(handle, Sectors(16 * kMiB)), kDiskCorruptError);
    EXPECT_EQ(Prepare(handle, Sectors(8 * kMiB)), kDiskCorruptError);
}

TEST_F(ExtendVolumeTest, AReadOnlyDiskAndASpannedVolumeRefuse)
{
    AddVolume(32 * kMiB);
    const Handle handle(kVolume, kForWriting);

    TheDisk().behaviour.readOnly = true;
    EXPECT_EQ(Extend(handle, Sectors(kPartition)), kMediaWriteProtected);
    TheDisk().behaviour.readOnly = false;
    machine.FindVolume(0, kStart)->AddExtent({machine.ShareDisk(0), 80 * kMiB, kMiB});
    EXPECT_EQ(Extend(handle, Sectors(kPartition)), kNotSupported);
}

TEST_F(ExtendVolumeTest, TheBoundaryMovesAlongAlsoUnderALock)
{
    machine.switches.ntfsBoundary = true;
    AddVolume(32 * kMiB);
    const Handle handle(kVolume, kForWriting);
    ASSERT_EQ(handle.Control(kk::kFsctlLockVolume, 0).status, kSuccess);
    ASSERT_EQ(handle.Read(48 * kMiB, 512).status, kEndOfFile);

    ASSERT_EQ(Extend(handle, Sectors(kPartition)), kSuccess);

    EXPECT_EQ(handle.Read(48 * kMiB, 512).status, kSuccess);
}

TEST_F(ExtendVolumeTest, ASnapshotKeepsTheShortFileSystem)
{
    AddVolume(32 * kMiB);
    const std::vector<uint8_t> before = TheDisk().ReadBytes(kStart, kPartition);
    SnapshotView snapshot(machine.volumes.Find(0, kStart));
    std::vector<uint8_t> kept(kPartition);

    ASSERT_EQ(Extend(Handle(kVolume, kForWriting), Sectors(kPartition)), kSuccess);

    ASSERT_TRUE(snapshot.Read(0, kept));
    EXPECT_EQ(kept, before);
    EXPECT_GT(snapshot.KeptBytes(), 0u);
    EXPECT_LT(snapshot.KeptBytes(), kFiles * kFileBytes) << "what does not change is not written";
}

TEST_F(ExtendVolumeTest, AHugeNearlyEmptyVolumeIsNoTrouble)
{
    constexpr uint64_t kHuge = 1ull << 40;
    Disk& disk = machine.AddDisk(kHuge).Gpt({.partitions = {{kStart, kHuge - 2 * kMiB}}});
    disk.Format(kStart, kHuge / 2, FileSystem::Ntfs);
    uint64_t written = 0;
    disk.AddWriteObserver([&written](uint64_t, uint64_t length) { written += length; });

    ASSERT_EQ(Extend(Handle(kVolume, kForWriting), static_cast<int64_t>((kHuge - 2 * kMiB) / 512)), kSuccess);

    EXPECT_EQ(VolumeData().numberSectors, static_cast<int64_t>((kHuge - 2 * kMiB) / 512 - 1));
    EXPECT_LT(written, 512 * kMiB);
}

TEST_F(ExtendVolumeTest, APartitionGrowsAndItsFileSystemAfterIt)
{
    AddVolume(kPartition);
    const kk::DiskGrowPartition growth = {1, 0, static_cast<int64_t>(32 * kMiB)};
    ASSERT_EQ(
        Handle(u"\\??\\PhysicalDrive0", kForWriting).Control(kk::kIoctlDiskGrowPartition, 0, BytesOf(growth)).status,
        kSuccess);

    ASSERT_EQ(Extend(Handle(kVolume, kForWriting), Sectors(kPartition + 32 * kMiB)), kSuccess);

    ExpectASoundVolumeOf(kPartition + 32 * kMiB);
}

}  // namespace
}  // namespace machine
