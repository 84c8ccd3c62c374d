#include "core/checked_math.h"
#include "core/file_opener.h"
#include "core/memory.h"
#include "core/native_file.h"
#include "core/nt.h"
#include "core/status.h"
#include "core/text.h"
#include "disk/disk_layout.h"
#include "disk/mount_points.h"
#include "disk/volume_controls.h"
#include "disk/volume_lookup.h"
#include "kestrelkit/kestrelkit.h"

namespace kk {

namespace {

// Text fields of the record lie at odd addresses, so text is built in locals and copied as bytes.

void DescribePartition(const PartitionEntry& partition, KkPartitionInfo& record)
{
    record.number = partition.number;
    record.startOffset = partition.start;
    record.length = partition.length;
    CopyBytes(record.typeGuid, &partition.typeGuid, sizeof(record.typeGuid));
    record.mbrType = partition.mbrType;
    static_assert(sizeof(record.name) == sizeof(partition.name));
    CopyBytes(&record.name, partition.name, sizeof(record.name));
    record.driveLetter[0] = 0;
    record.fileSystemSize = 0;
    record.fileSystemName[0] = 0;
    record.deviceName[0] = 0;
    record.volumePath[0] = 0;
}

void DescribeDriveLetter(const char16_t* devicePath, KkPartitionInfo& record)
{
    char16_t letter[kDriveLetterUnits];
    if (GetDriveLetter(devicePath, letter)) {
        CopyBytes(&record.driveLetter, letter, sizeof(letter));
    }
}

void DescribeNtfsSize(const char16_t* devicePath, KkPartitionInfo& record)
{
    DevicePtr volume;
    NtfsExtendedVolumeData answer = {};
    if (Failed(OpenDevice(devicePath, false, volume)) ||
        Failed(volume->Control(kFsctlGetNtfsVolumeData, nullptr, 0, &answer, sizeof(answer), nullptr))) {
        return;
    }
    const uint32_t sectorSize = SectorSizeOrDefault(answer.data.bytesPerSector);
    record.fileSystemSize = SaturatingMultiply(static_cast<uint64_t>(answer.data.numberSectors), sectorSize);
}

void DescribeFileSystemName(const char16_t* devicePath, KkPartitionInfo& record)
{
    NtHandle handle = nullptr;
    if (Failed(OpenNativeFile(devicePath, kOpenToQuery, handle))) {
        return;
    }
    const HandleOwner owner(handle);
    FileFsAttributeInformation answer = {};
    IoStatusBlock ioStatus = {};
    if (Failed(NtQueryVolumeInformationFile(handle, &ioStatus, &answer, sizeof(answer),
                                            kFileFsAttributeInformationClass))) {
        return;
    }
    constexpr uint32_t nameRoom = sizeof(record.fileSystemName) / sizeof(char16_t) - 1;
    const uint32_t length = Min(answer.fileSystemNameBytes / uint32_t{sizeof(char16_t)}, nameRoom);
    answer.fileSystemName[length] = 0;
    CopyBytes(&record.fileSystemName, answer.fileSystemName, (length + 1) * sizeof(char16_t));
    if (SameText(answer.fileSystemName, u"RAW")) {
        record.fileSystemName[0] = 0;
    }
}

void DescribeDeviceName(const char16_t* devicePath, KkPartitionInfo& record)
{
    // Without a terminator, on purpose: callers hand in zeroed records and rely on nothing else being written.
    constexpr size_t nameRoom = sizeof(record.deviceName) / sizeof(char16_t) - 1;
    CopyBytes(&record.deviceName, devicePath, TextLength(devicePath, nameRoom) * sizeof(char16_t));
}

void DescribeVolumePath(const char16_t* devicePath, KkPartitionInfo& record)
{
    constexpr size_t capacity = sizeof(record.volumePath) / sizeof(char16_t);
    char16_t path[capacity];
    GetVolumeGuidPath(devicePath, path, capacity);
    CopyBytes(&record.volumePath, path, (TextLength(path) + 1) * sizeof(char16_t));
}

/// Leaves every byte of the record that has no content as the caller had it.
void FillRecord(uint32_t disk, const PartitionEntry& partition, KkPartitionInfo& record)
{
    DescribePartition(partition, record);
    char16_t devicePath[kDevicePathUnits];
    if (!FindVolumeForPartition(disk, partition.start, devicePath, kDevicePathUnits, nullptr)) {
        return;
    }
    DescribeDriveLetter(devicePath, record);
    DescribeNtfsSize(devicePath, record);
    DescribeFileSystemName(devicePath, record);
    DescribeDeviceName(devicePath, record);
    DescribeVolumePath(devicePath, record);
}

/// `count` is written on success alone.
KK_STATUS ListPartitions(uint32_t disk, KkPartitionInfo* records, uint32_t capacity, uint32_t& count)
{
    DiskLayout layout;
    KK_TRY(ReadDiskLayout(disk, layout));
    count = static_cast<uint32_t>(layout.partitions.Count());
    if (records == nullptr) {
        return KK_STATUS_SUCCESS;
    }
    for (uint32_t i = 0; i < Min(count, capacity); ++i) {
        FillRecord(disk, layout.partitions[i], records[i]);
    }
    return KK_STATUS_SUCCESS;
}

}  // namespace

}  // namespace kk

KK_STATUS KK_CALL KkListPartitions(uint32_t diskNumber, KkPartitionInfo* records, uint32_t capacity, uint32_t* count)
{
    uint32_t found = 0;
    const KK_STATUS status = kk::ListPartitions(diskNumber, records, capacity, found);
    if (count != nullptr) {
        *count = found;
    }
    return status;
}
