#include "backup/volume_bitmap.h"
#include "disk/volume_controls.h"
#include "machine/ntfs_reader.h"
#include "tests/machine/native_calls.h"

namespace machine {
namespace {

constexpr uint32_t kExtents = kk::kIoctlVolumeGetVolumeDiskExtents;
constexpr uint32_t kBitmap = kk::kFsctlGetVolumeBitmap;
constexpr uint64_t kStart = kMiB;
constexpr uint64_t kLength = 64 * kMiB;
const std::u16string kVolume = u"\\Device\\HarddiskVolume1";

class VolumeDeviceTest : public MachineTest {
protected:
    Outcome Bitmap(int64_t startingLcn, uint32_t room) const
    {
        return Handle(kVolume).Control(kBitmap, room, BytesOf(startingLcn));
    }
    std::vector<uint8_t> TrueBitmap() const
    {
        NtfsReader reader(*machine.FindVolume(0, kStart));
        EXPECT_TRUE(reader.Open());
        std::vector<uint8_t> bits((reader.Geometry().totalClusters + 7) / 8);
        EXPECT_TRUE(reader.ReadBitmap(0, bits));
        return bits;
    }
};

TEST_F(VolumeDeviceTest, EveryRecognisedPartitionHasOneAndTheReservedOneHasNot)
{
    machine.AddDisk(64 * kMiB).Gpt(
        {.partitions = {{kMiB, kMiB, kEfiSystemType}, {2 * kMiB, kMiB, kReservedType}, {3 * kMiB, kMiB}}});
    machine.AddDisk(64 * kMiB, {.number = 5}).Mbr({.partitions = {{kMiB, kMiB}}, .logicals = {{8 * kMiB, kMiB}}});

    EXPECT_EQ(machine.FindVolume(0, kMiB)->Number(), 1u);
    EXPECT_EQ(machine.FindVolume(0, 2 * kMiB), nullptr);
    EXPECT_EQ(machine.FindVolume(0, 3 * kMiB)->Number(), 2u);
    EXPECT_EQ(machine.FindVolume(5, kMiB)->Number(), 3u);
    EXPECT_EQ(machine.FindVolume(5, 8 * kMiB)->Number(), 4u);
    EXPECT_EQ(machine.volumes.All().size(), 4u);
}

TEST_F(VolumeDeviceTest, NumbersAreNeverUsedAgain)
{
    Disk& disk = machine.AddDisk(64 * kMiB).Gpt({.partitions = {{kMiB, kMiB}}});
    disk.Gpt({.partitions = {{4 * kMiB, kMiB}}});
    EXPECT_EQ(machine.FindVolume(0, kMiB), nullptr);
    EXPECT_EQ(machine.FindVolume(0, 4 * kMiB)->Number(), 2u);

    disk.Rescan();
    EXPECT_EQ(machine.FindVolume(0, 4 * kMiB)->Number(), 2u);
    machine.SetVolumeNumber(*machine.FindVolume(0, 4 * kMiB), 128);
    EXPECT_EQ(Handle(u"\\Device\\HarddiskVolume128").created.status, kSuccess);
    EXPECT_EQ(Handle(u"\\Device\\HarddiskVolume2").created.status, kObjectNameNotFound);
}

TEST_F(VolumeDeviceTest, NumbersAreCountedAnewAfterARestart)
{
    machine.AddDisk(64 * kMiB).Gpt({.partitions = {{kMiB, kMiB}, {4 * kMiB, kMiB}}});
    machine.RemoveDisk(0);

    machine.CountVolumesFrom(1);
    machine.AddDisk(64 * kMiB).Gpt({.partitions = {{kMiB, kMiB}}});

    EXPECT_EQ(machine.FindVolume(0, kMiB)->Number(), 1u);
}

TEST_F(VolumeDeviceTest, OpensByEachOfItsNamesButNotWithABackslash)
{
    machine.AddDisk(64 * kMiB).Gpt({.partitions = {{kMiB, kMiB}}});
    Volume& volume = *machine.FindVolume(0, kMiB);
    machine.AssignLetter(volume, u'd');

    EXPECT_EQ(Handle(kVolume).created.status, kSuccess);
    EXPECT_EQ(Handle(u"\\??\\GLOBALROOT" + kVolume).created.status, kSuccess);
    EXPECT_EQ(Handle(u"\\??\\D:").created.status, kSuccess);
    EXPECT_EQ(Handle(volume.LinkName()).created.status, kSuccess);
    EXPECT_EQ(Handle(volume.LinkName() + u"\\").created.status, kFileIsADirectory);
    EXPECT_EQ(Handle(u"\\??\\D:\\").created.status, kFileIsADirectory);
}

TEST_F(VolumeDeviceTest, ReadsAndWritesItsPartOfTheDisk)
{
    Disk& disk = machine.AddDisk(64 * kMiB).Gpt({.partitions = {{kMiB, kMiB}}});
    const Handle volume(kVolume, kForWriting);

    EXPECT_EQ(volume.Write(512, std::vector<uint8_t>(512, 9)).information, 512u);
    EXPECT_EQ(disk.ReadBytes(kMiB + 512, 512), std::vector<uint8_t>(512, 9));
    EXPECT_EQ(volume.Read(512, 512).output, std::vector<uint8_t>(512, 9));
    EXPECT_EQ(volume.Read(100, 512).status, kInvalidParameter);
    EXPECT_EQ(volume.Read(kMiB - 512, 1024).information, 512u);
    EXPECT_EQ(volume.Read(kMiB, 512).status, kEndOfFile);
    EXPECT_EQ(volume.Write(kMiB - 512, std::vector<uint8_t>(1024)).information, 512u);
    EXPECT_EQ(volume.Write(kMiB, std::vector<uint8_t>(512)).status, kSuccess);
    EXPECT_EQ(volume.Write(kMiB, std::vector<uint8_t>(512)).information, 0u);
}

TEST_F(VolumeDeviceTest, TellsItsExtentsAsFarAsThereIsRoom)
{
    machine.AddDisk(64 * kMiB).Gpt({.partitions = {{kMiB, kMiB}}});
    const Outcome one = Handle(kVolume).Control(kExtents, 512);
    machine.FindVolume(0, kMiB)->AddExtent({machine.ShareDisk(0), 8 * kMiB, 2 * kMiB});
    const Outcome two = Handle(kVolume).Control(kExtents, 512);
    const Outcome cut = Handle(kVolume).Control(kExtents, 32);

    EXPECT_EQ(one.information, 32u);
    EXPECT_EQ(one.As<uint32_t>(), 1u);
    EXPECT_EQ(one.As<kk::DiskExtent>(8).extentLength, static_cast<int64_t>(kMiB));
    EXPECT_EQ(two.information, 56u);
    EXPECT_EQ(two.As<kk::DiskExtent>(32).startingOffset, static_cast<int64_t>(8 * kMiB));
    EXPECT_EQ(cut.status, kBufferOverflow);
    EXPECT_EQ(cut.information, 32u);
    EXPECT_EQ(cut.As<uint32_t>(), 2u);
    EXPECT_EQ(Handle(kVolume).Control(kExtents, 31).status, kInvalidParameter);
    EXPECT_EQ(Handle(kVolume).Control(kk::kIoctlDiskGetLengthInfo, 8).As<uint64_t>(), 3 * kMiB);
}

TEST_F(VolumeDeviceTest, ASpannedVolumeReadsAcrossItsExtents)
{
    Disk& disk = machine.AddDisk(64 * kMiB).Gpt({.partitions = {{kMiB, kMiB}}});
    machine.FindVolume(0, kMiB)->AddExtent({machine.ShareDisk(0), 8 * kMiB, 2 * kMiB});
    disk.WriteBytes(2 * kMiB - 512, std::vector<uint8_t>(512, 1));
    disk.WriteBytes(8 * kMiB, std::vector<uint8_t>(512, 2));

    const Outcome answer = Handle(kVolume).Read(kMiB - 512, 1024);

    EXPECT_EQ(answer.information, 1024u);
    EXPECT_EQ(answer.output[511], 1);
    EXPECT_EQ(answer.output[512], 2);
    EXPECT_EQ(machine.FindVolume(0, 8 * kMiB), machine.FindVolume(0, kMiB));
}

TEST_F(VolumeDeviceTest, FileSystemsAreKnownByTheirBytes)
{
    Disk& disk = machine.AddDisk(256 * kMiB).Gpt({.partitions = {{kMiB, 128 * kMiB}}});
    const auto name = [] {
        const Outcome answer = Handle(kVolume).QueryVolume(160);
        const auto record = answer.As<kk::FileFsAttributeInformation>();
        EXPECT_EQ(answer.information, 12 + record.fileSystemNameBytes);
        return std::u16string(record.fileSystemName, record.fileSystemNameBytes / 2);
    };

    EXPECT_EQ(name(), u"RAW");
    disk.Format(kMiB, 128 * kMiB, FileSystem::Ntfs);
    EXPECT_EQ(name(), u"NTFS");
    disk.Format(kMiB, 128 * kMiB, FileSystem::Fat32);
    EXPECT_EQ(name(), u"FAT32");
    disk.Format(kMiB, 128 * kMiB, FileSystem::Fat16);
    EXPECT_EQ(name(), u"FAT");
    disk.Format(kMiB, 128 * kMiB, FileSystem::Exfat);
    EXPECT_EQ(name(), u"exFAT");
    machine.FindVolume(0, kMiB)->SetFileSystemName(u"FifteenLetters!");
    EXPECT_EQ(name(), u"FifteenLetters!");
    EXPECT_EQ(Handle(kVolume).QueryVolume(15).status, kInfoLengthMismatch);
    EXPECT_EQ(Handle(kVolume).QueryVolume(20).status, kBufferOverflow);
}

TEST_F(VolumeDeviceTest, NtfsDataIsForNtfsOnlyAndGrowsWithTheRoom)
{
    machine.AddDisk(128 * kMiB).Gpt({.partitions = {{kStart, kLength}}});
    EXPECT_EQ(Handle(kVolume).Control(kk::kFsctlGetNtfsVolumeData, 96).status, kInvalidDeviceRequest);
    machine.FindDisk(0)->Format(kStart, kLength, FileSystem::Ntfs);

    const Outcome exact = Handle(kVolume).Control(kk::kFsctlGetNtfsVolumeData, 96);
    const Outcome roomy = Handle(kVolume).Control(kk::kFsctlGetNtfsVolumeData, 128);

    EXPECT_EQ(exact.information, 96u);
    EXPECT_EQ(exact.As<kk::NtfsVolumeData>().numberSectors, static_cast<int64_t>(kLength / 512 - 1));
    EXPECT_EQ(exact.As<kk::NtfsVolumeData>().bytesPerCluster, 4096u);
    EXPECT_EQ(roomy.information, 128u);
    EXPECT_EQ(roomy.As<uint32_t>(96), 32u);
    EXPECT_EQ(Handle(kVolume).Control(kk::kFsctlGetNtfsVolumeData, 95).status, kBufferTooSmall);
    EXPECT_EQ(Handle(kVolume).QueryFile(24).status, kInvalidParameter);
}

TEST_F(VolumeDeviceTest, TheBitmapIsTheOneOnTheDisk)
{
    AddNtfsDisk(128 * kMiB, kStart, kLength);
    const std::vector<uint8_t> truth = TrueBitmap();

    const Outcome answer = Bitmap(0, 1 << 20);

    EXPECT_EQ(answer.status, kSuccess);
    EXPECT_EQ(answer.information, 16 + truth.size());
    EXPECT_EQ(answer.As<kk::VolumeBitmapHeader>().bitmapSize, 16383);
    EXPECT_TRUE(std::equal(truth.begin(), truth.end() - 1, answer.output.begin() + 16));
    EXPECT_EQ(answer.output[16 + truth.size() - 1] & 0x80, 0x80) << "the bit after the last cluster is set";
}

TEST_F(VolumeDeviceTest, ABitmapThatDoesNotFitSaysSoAndCountsToTheVolumesEnd)
{
    AddNtfsDisk(128 * kMiB, kStart, kLength);
    const std::vector<uint8_t> truth = TrueBitmap();

    const Outcome answer = Bitmap(100, 16 + 32);

    EXPECT_EQ(answer.status, kBufferOverflow);
    EXPECT_EQ(answer.information, 48u);
    EXPECT_EQ(answer.As<kk::VolumeBitmapHeader>().startingLcn, 96);
    EXPECT_EQ(answer.As<kk::VolumeBitmapHeader>().bitmapSize, 16383 - 96);
    EXPECT_TRUE(std::equal(answer.output.begin() + 16, answer.output.end(), truth.begin() + 12));
}

TEST_F(VolumeDeviceTest, TheBitmapsStartMayBeRoundedDownFar)
{
    machine.switches.bitmapRoundingUnit = 32768;
    AddNtfsDisk(256 * kMiB, kStart, 200 * kMiB);

    EXPECT_EQ(Bitmap(32767, 64).As<kk::VolumeBitmapHeader>().startingLcn, 0);
    EXPECT_EQ(Bitmap(40000, 64).As<kk::VolumeBitmapHeader>().startingLcn, 32768);
}

TEST_F(VolumeDeviceTest, BitmapRequestsThatMakeNoSenseAreRefused)
{
    AddNtfsDisk(128 * kMiB, kStart, kLength);

    EXPECT_EQ(Bitmap(16383, 64).status, kInvalidParameter);
    EXPECT_EQ(Bitmap(-1, 64).status, kInvalidParameter);
    EXPECT_EQ(Bitmap(0, 23).status, kBufferTooSmall);
    EXPECT_EQ(Handle(kVolume).Control(kBitmap, 64, std::vector<uint8_t>(7)).status, kBufferTooSmall);
}

TEST_F(VolumeDeviceTest, WithTheBoundaryReadsEndWhereNtfsEnds)
{
    AddNtfsDisk(128 * kMiB, kStart, kLength);
    const Handle volume(kVolume, kForWriting);
    EXPECT_EQ(volume.Read(kLength - 1024, 1024).information, 1024u);

    machine.switches.ntfsBoundary = true;

    EXPECT_EQ(volume.Read(kLength - 1024, 1024).information, 512u);
    EXPECT_EQ(volume.Read(kLength - 512, 512).status, kEndOfFile);
    EXPECT_EQ(volume.Write(kLength - 512, std::vector<uint8_t>(512)).status, kSuccess);
    EXPECT_EQ(volume.Write(kLength - 512, std::vector<uint8_t>(512)).information, 0u);
}

TEST_F(VolumeDeviceTest, WithProtectionMountedSectorsAreNotWritable)
{
    AddNtfsDisk(128 * kMiB, kStart, kLength);
    machine.switches.mountedWriteProtection = true;
    const Handle disk(u"\\??\\PhysicalDrive0", kForWriting);
    const std::vector<uint8_t> sector(512);

    EXPECT_EQ(Handle(kVolume, kForWriting).Write(0, sector).status, kAccessDenied);
    EXPECT_EQ(disk.Write(kStart, sector).status, kAccessDenied);
    EXPECT_EQ(disk.Write(kStart - 512, sector).status, kSuccess);
    EXPECT_EQ(disk.Write(kStart + kLength, sector).status, kSuccess);
}

TEST_F(VolumeDeviceTest, VolumesMayArriveLate)
{
    machine.switches.volumeArrivalDelay = 2;
    machine.AddDisk(64 * kMiB).Gpt({.partitions = {{kMiB, kMiB}}});

    EXPECT_EQ(Handle(kVolume).created.status, kObjectNameNotFound);
    EXPECT_EQ(Handle(kVolume).created.status, kSuccess);
}

TEST_F(VolumeDeviceTest, AHiddenVolumeStaysAway)
{
    Disk& disk = machine.AddDisk(64 * kMiB).Gpt({.partitions = {{kMiB, kMiB}}});

    machine.HideVolume(*machine.FindVolume(0, kMiB));
    disk.Rescan();

    EXPECT_EQ(machine.FindVolume(0, kMiB), nullptr);
    EXPECT_EQ(Handle(kVolume).created.status, kObjectNameNotFound);
}

TEST_F(VolumeDeviceTest, WithCollisionsADiskWithAKnownIdentityHasNoVolumes)
{
    machine.switches.diskIdentityCollisions = true;
    machine.AddDisk(64 * kMiB).Gpt({.partitions = {{kMiB, kMiB}}});
    machine.AddDisk(64 * kMiB).Gpt({.partitions = {{kMiB, kMiB}}});

    EXPECT_NE(machine.FindVolume(0, kMiB), nullptr);
    EXPECT_EQ(machine.FindVolume(1, kMiB), nullptr);
}

}  // namespace
}  // namespace machine
