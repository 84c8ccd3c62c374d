#include <fstream>
#include <random>

#include "disk/disk_controls.h"
#include "machine/ntfs_reader.h"
#include "machine/snapshot_view.h"
#include "support/ntfs_judges.h"
#include "tests/machine/native_calls.h"

namespace machine {
namespace {

constexpr uint64_t kStart = kMiB;
constexpr uint64_t kPartition = 64 * kMiB;
constexpr uint64_t kFileBytes = 3 * kMiB;
constexpr int kFiles = 4;
const std::u16string kVolume = u"\\Device\\HarddiskVolume1";

/// A partition of 64 MiB whose NTFS file system, with files in it, may be shorter.
class ResizeVolumeTest : public MachineTest {
protected:
    void AddVolume(uint64_t fileSystemBytes, uint32_t sectorSize = 512, uint64_t diskBytes = 128 * kMiB)
    {
        sectorSize_ = sectorSize;
        std::mt19937 random(7);
        FormatOptions options;
        for (int i = 0; i < kFiles; ++i) {
            std::string content(kFileBytes, '\0');
            std::generate(content.begin(), content.end(), [&random] { return static_cast<char>(random()); });
            std::ofstream(sources_[i].Path(), std::ios::binary) << content;
            options.files.emplace_back(sources_[i].Path(), "file" + std::to_string(i));
        }
        machine.AddDisk(diskBytes, {.sectorSize = sectorSize})
            .Gpt({.partitions = {{.start = kStart, .length = kPartition}}})
            .Format(kStart, fileSystemBytes, FileSystem::Ntfs, options);
    }
    int64_t Sectors(uint64_t bytes) const { return static_cast<int64_t>(bytes / sectorSize_); }

    static Status Extend(const Handle& handle, int64_t sectors)
    {
        return handle.Control(kk::kFsctlExtendVolume, 0, BytesOf(sectors)).status;
    }
    static Status Shrink(const Handle& handle, kk::ShrinkRequest request, int64_t sectors = 0, uint64_t flags = 0)
    {
        const kk::ShrinkVolumeInformation information = {request, 0, flags, sectors};
        return handle.Control(kk::kFsctlShrinkVolume, 0, BytesOf(information)).status;
    }
    static Status Prepare(const Handle& handle, int64_t sectors)
    {
        return Shrink(handle, kk::ShrinkRequest::Prepare, sectors);
    }
    static Status Commit(const Handle& handle) { return Shrink(handle, kk::ShrinkRequest::Commit); }
    static kk::NtfsVolumeData VolumeData()
    {
        return Handle(kVolume).Control(kk::kFsctlGetNtfsVolumeData, 96).As<kk::NtfsVolumeData>();
    }
    Disk& TheDisk() { return *machine.FindDisk(0); }

    /// Other people's tools find a clean file system of exactly that length, and every file is as it was.
    void ExpectASoundVolumeOf(uint64_t bytes)
    {
        const TemporaryFile exported;
        TheDisk().ExportFile(kStart, bytes, exported.Path());
        EXPECT_EQ(ComplaintAboutNtfs(exported.Path()), "");
        for (int i = 0; i < kFiles; ++i) {
            const TemporaryFile found;
            const std::string command = "ntfscat " + exported.Path() + " file" + std::to_string(i) + " > " +
                                        found.Path() + " && cmp " + found.Path() + " " + sources_[i].Path();
            const ToolResult compared = RunTool({"sh", "-c", command});
            EXPECT_EQ(compared.exitCode, 0) << compared.text;
        }
        const kk::NtfsVolumeData data = VolumeData();
        EXPECT_EQ(data.numberSectors, Sectors(bytes) - 1);
        EXPECT_EQ(data.totalClusters, (Sectors(bytes) - 1) / (data.bytesPerCluster / data.bytesPerSector));
    }

private:
    uint32_t sectorSize_ = 512;
    TemporaryFile sources_[kFiles];
};

class ExtendVolumeTest : public ResizeVolumeTest {};
class ShrinkVolumeTest : public ResizeVolumeTest {};

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
