#include "disk/disk_controls.h"
#include "machine/text.h"
#include "tests/machine/native_calls.h"

namespace machine {
namespace {

constexpr uint32_t kLayoutRoom = 18624;

class DiskDeviceTest : public MachineTest {};

TEST_F(DiskDeviceTest, OnlyWholeSectorsInsideTheDiskMove)
{
    machine.AddDisk(kMiB, {.sectorSize = 4096});
    const Handle disk(u"\\??\\PhysicalDrive0", kForWriting);

    EXPECT_EQ(disk.Read(0, 512).status, kInvalidParameter);
    EXPECT_EQ(disk.Read(512, 4096).status, kInvalidParameter);
    EXPECT_EQ(disk.Read(kMiB - 4096, 8192).status, kNonexistentSector);
    EXPECT_EQ(disk.Read(kMiB, 4096).status, kNonexistentSector);
    EXPECT_EQ(disk.Write(4096, std::vector<uint8_t>(4096, 7)).information, 4096u);
    EXPECT_EQ(disk.Read(4096, 4096).output, std::vector<uint8_t>(4096, 7));
    EXPECT_EQ(disk.Flush(), kSuccess);
}

TEST_F(DiskDeviceTest, GeometryNeedsRoomAndFillsWhatThereIs)
{
    machine.AddDisk(100 * kMiB, {.sectorSize = 4096});
    const Handle disk(u"\\??\\PhysicalDrive0");

    const Outcome answer = disk.Control(kk::kIoctlDiskGetDriveGeometryEx, 40);

    EXPECT_EQ(answer.status, kSuccess);
    EXPECT_EQ(answer.information, 40u);
    EXPECT_EQ(answer.As<kk::DiskGeometryEx>().bytesPerSector, 4096u);
    EXPECT_EQ(answer.As<kk::DiskGeometryEx>().diskSize, static_cast<int64_t>(100 * kMiB));
    EXPECT_EQ(disk.Control(kk::kIoctlDiskGetDriveGeometryEx, 500).information, 112u);
    EXPECT_EQ(disk.Control(kk::kIoctlDiskGetDriveGeometryEx, 31).status, kBufferTooSmall);
}

TEST_F(DiskDeviceTest, TheLayoutNeedsRoomForAllEntriesAndCopiesNothingWithoutIt)
{
    machine.AddDisk(64 * kMiB).Gpt({.partitions = {{kMiB, kMiB}, {2 * kMiB, kMiB}}});
    const Handle disk(u"\\??\\PhysicalDrive0");

    const Outcome fits = disk.Control(kk::kIoctlDiskGetDriveLayoutEx, 48 + 2 * 144);
    const Outcome tooSmall = disk.Control(kk::kIoctlDiskGetDriveLayoutEx, 48 + 2 * 144 - 1);

    EXPECT_EQ(fits.information, 48u + 2 * 144);
    EXPECT_EQ(fits.As<kk::DriveLayoutInformationEx>().partitionCount, 2u);
    EXPECT_EQ(fits.As<kk::PartitionInformationEx>(48 + 144).partitionNumber, 2u);
    EXPECT_EQ(tooSmall.status, kBufferTooSmall);
    EXPECT_EQ(tooSmall.information, 0u);
    EXPECT_EQ(tooSmall.output, std::vector<uint8_t>(48 + 2 * 144 - 1, 0xEE));
    EXPECT_EQ(disk.Control(kk::kIoctlDiskGetDriveLayoutEx, 100).status, kInfoLengthMismatch);
}

TEST_F(DiskDeviceTest, TheLayoutStaysAsItWasUntilTheUpdateRequest)
{
    Disk& disk = machine.AddDisk(64 * kMiB).Gpt({.partitions = {{kMiB, kMiB}}});
    const Handle handle(u"\\??\\PhysicalDrive0", kForWriting);
    const auto count = [&] {
        const Outcome answer = handle.Control(kk::kIoctlDiskGetDriveLayoutEx, kLayoutRoom);
        return answer.As<kk::DriveLayoutInformationEx>().partitionCount;
    };
    MemoryStorage other(64 * kMiB);
    WriteGptTable(other, 512, {.partitions = {{kMiB, kMiB}, {8 * kMiB, kMiB}}});
    std::vector<uint8_t> table(34 * 512);
    other.Read(0, table);

    ASSERT_EQ(handle.Write(0, table).status, kSuccess);

    EXPECT_EQ(count(), 1u);
    EXPECT_EQ(machine.FindVolume(0, 8 * kMiB), nullptr);
    EXPECT_EQ(handle.Control(kk::kIoctlDiskUpdateProperties, 0).status, kSuccess);
    EXPECT_EQ(count(), 2u);
    EXPECT_NE(machine.FindVolume(0, 8 * kMiB), nullptr);
    EXPECT_EQ(disk.CachedLayout().partitions.size(), 2u);
}

TEST_F(DiskDeviceTest, PartitionNumbersNeedNotFollowTheTable)
{
    machine.AddDisk(64 * kMiB).Gpt({.partitions = {{kMiB, kMiB}, {2 * kMiB, kMiB}}}).SetPartitionNumber(2 * kMiB, 17);

    const Outcome answer = Handle(u"\\??\\PhysicalDrive0").Control(kk::kIoctlDiskGetDriveLayoutEx, kLayoutRoom);

    EXPECT_EQ(answer.As<kk::PartitionInformationEx>(48).partitionNumber, 1u);
    EXPECT_EQ(answer.As<kk::PartitionInformationEx>(48 + 144).partitionNumber, 17u);
}

TEST_F(DiskDeviceTest, DisksMisbehaveOnDemand)
{
    Disk& disk = machine.AddDisk(64 * kMiB);
    const Handle handle(u"\\??\\PhysicalDrive0", kForWriting);

    disk.behaviour.reportsZeroBytesPerSector = true;
    EXPECT_EQ(handle.Control(kk::kIoctlDiskGetDriveGeometryEx, 40).As<kk::DiskGeometryEx>().bytesPerSector, 0u);
    disk.behaviour.geometryFails = true;
    EXPECT_EQ(handle.Control(kk::kIoctlDiskGetDriveGeometryEx, 40).status, kIoDeviceError);
    disk.behaviour.layoutFailures = 1;
    EXPECT_EQ(handle.Control(kk::kIoctlDiskGetDriveLayoutEx, kLayoutRoom).status, kIoDeviceError);
    EXPECT_EQ(handle.Control(kk::kIoctlDiskGetDriveLayoutEx, kLayoutRoom).status, kSuccess);
    disk.behaviour.readOnly = true;
    EXPECT_EQ(handle.Write(0, std::vector<uint8_t>(512)).status, kMediaWriteProtected);
    disk.behaviour.noMedia = true;
    EXPECT_EQ(handle.Control(kk::kIoctlDiskGetDriveLayoutEx, kLayoutRoom).status, kNoMediaInDevice);
    EXPECT_EQ(handle.Read(0, 512).status, kNoMediaInDevice);
}

TEST_F(DiskDeviceTest, RequestsOfOthersAreRefusedAndAccessBitsAreChecked)
{
    constexpr uint32_t kGrowPartition = 0x7C0D0;
    machine.AddDisk(64 * kMiB);
    const Handle reader(u"\\??\\PhysicalDrive0");

    EXPECT_EQ(reader.Control(0x560000, 512).status, kInvalidDeviceRequest);
    EXPECT_EQ(reader.Control(0x9006F, 512, std::vector<uint8_t>(8)).status, kInvalidDeviceRequest);
    EXPECT_EQ(reader.Control(kGrowPartition, 0, std::vector<uint8_t>(16)).status, kAccessDenied);
    EXPECT_EQ(reader.QueryFile(24).status, kInvalidDeviceRequest);
    EXPECT_EQ(reader.Control(kk::kIoctlDiskGetLengthInfo, 8).As<int64_t>(), static_cast<int64_t>(64 * kMiB));
    EXPECT_EQ(reader.Control(kk::kIoctlDiskGetLengthInfo, 7).status, kBufferTooSmall);
    EXPECT_EQ(Handle(u"\\??\\PhysicalDrive0", {.access = kSynchronize}).Control(kk::kIoctlDiskGetLengthInfo, 8).status,
              kAccessDenied);
}

TEST_F(DiskDeviceTest, ARemovedDiskTakesItsVolumesAlongAndFailsItsHandles)
{
    AddNtfsDisk(64 * kMiB, kMiB, 32 * kMiB);
    const Handle disk(u"\\??\\PhysicalDrive0");
    const Handle volume(u"\\Device\\HarddiskVolume1");

    machine.RemoveDisk(0);

    EXPECT_EQ(disk.Read(0, 512).status, kNoSuchDevice);
    EXPECT_EQ(volume.Read(0, 512).status, kNoSuchDevice);
    EXPECT_EQ(Handle(u"\\??\\PhysicalDrive0").created.status, kObjectNameNotFound);
    EXPECT_EQ(Handle(u"\\Device\\HarddiskVolume1").created.status, kObjectNameNotFound);
    EXPECT_EQ(machine.AddDisk(kMiB).Number(), 0u);
}

TEST_F(DiskDeviceTest, ObserversHearOfAWriteWhileTheOldBytesAreStillThere)
{
    Disk& disk = machine.AddDisk(kMiB);
    std::vector<uint8_t> before;
    const uint64_t token = disk.AddWriteObserver([&](uint64_t offset, uint64_t length) {
        const std::vector<uint8_t> bytes = disk.ReadBytes(offset, length);
        before.insert(before.end(), bytes.begin(), bytes.end());
    });
    const Handle handle(u"\\??\\PhysicalDrive0", kForWriting);

    handle.Write(512, std::vector<uint8_t>(512, 1));
    disk.RemoveWriteObserver(token);
    handle.Write(512, std::vector<uint8_t>(512, 2));

    EXPECT_EQ(before, std::vector<uint8_t>(512, 0));
}

TEST_F(DiskDeviceTest, AnAnswerCanBeReplaced)
{
    machine.AddDisk(kMiB);
    machine.OnControl(
        {.object = "PhysicalDrive0", .code = kk::kIoctlDiskGetLengthInfo},
        [](const CallRecord&, const ControlRequest&) { return ControlAnswer{kBufferOverflow, {1, 2, 3}, 77}; });

    const Outcome answer = Handle(u"\\??\\PhysicalDrive0").Control(kk::kIoctlDiskGetLengthInfo, 8);

    EXPECT_EQ(answer.status, kBufferOverflow);
    EXPECT_EQ(answer.information, 77u);
    EXPECT_EQ(answer.output, (std::vector<uint8_t>{1, 2, 3, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE}));
}

}  // namespace
}  // namespace machine
