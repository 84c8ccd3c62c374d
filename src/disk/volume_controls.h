#pragma once

#include <cstddef>
#include <cstdint>

// Requests that volumes and file systems answer: codes and records of the Windows SDK's winioctl.h and ntifs.h.

namespace kk {

inline constexpr uint32_t kIoctlVolumeGetVolumeDiskExtents = 0x560000;
inline constexpr uint32_t kFsctlLockVolume = 0x90018;
inline constexpr uint32_t kFsctlUnlockVolume = 0x9001C;
inline constexpr uint32_t kFsctlDismountVolume = 0x90020;
inline constexpr uint32_t kFsctlGetNtfsVolumeData = 0x90064;
inline constexpr uint32_t kFsctlExtendVolume = 0x900F0;  // input: the volume's new length in sectors, signed 64-bit
inline constexpr uint32_t kFsctlShrinkVolume = 0x901B0;

/// DISK_EXTENT.
struct DiskExtent {
    uint32_t diskNumber;
    int64_t startingOffset;
    int64_t extentLength;
};
static_assert(sizeof(DiskExtent) == 24 && offsetof(DiskExtent, startingOffset) == 8);

inline constexpr uint32_t kVolumeDiskExtentsBytes = 512;
inline constexpr uint32_t kVolumeDiskExtentsRoom = 21;

/// VOLUME_DISK_EXTENTS with as many extents as 512 bytes hold.
struct VolumeDiskExtents {
    uint32_t numberOfDiskExtents;
    uint32_t padding;
    DiskExtent extents[kVolumeDiskExtentsRoom];
};
static_assert(sizeof(VolumeDiskExtents) == kVolumeDiskExtentsBytes && offsetof(VolumeDiskExtents, extents) == 8);

/// NTFS_VOLUME_DATA_BUFFER.
struct NtfsVolumeData {
    int64_t volumeSerialNumber;
    int64_t numberSectors;
    int64_t totalClusters;
    int64_t freeClusters;
    int64_t totalReserved;
    uint32_t bytesPerSector;
    uint32_t bytesPerCluster;
    uint32_t bytesPerFileRecordSegment;
    uint32_t clustersPerFileRecordSegment;
    int64_t mftValidDataLength;
    int64_t mftStartLcn;
    int64_t mft2StartLcn;
    int64_t mftZoneStart;
    int64_t mftZoneEnd;
};
static_assert(sizeof(NtfsVolumeData) == 96 && offsetof(NtfsVolumeData, numberSectors) == 8);
static_assert(offsetof(NtfsVolumeData, bytesPerSector) == 40 && offsetof(NtfsVolumeData, bytesPerCluster) == 44);

/// NTFS_VOLUME_DATA_BUFFER with room for what newer systems append to it.
struct NtfsExtendedVolumeData {
    NtfsVolumeData data;
    uint8_t appended[32];
};
static_assert(sizeof(NtfsExtendedVolumeData) == 128);

/// SHRINK_VOLUME_REQUEST_TYPES.
enum class ShrinkRequest : uint32_t { Prepare = 1, Commit = 2 };

/// SHRINK_VOLUME_INFORMATION.
struct ShrinkVolumeInformation {
    ShrinkRequest request;
    uint32_t padding;
    uint64_t flags;
    int64_t newNumberOfSectors;  // read when preparing
};
static_assert(sizeof(ShrinkVolumeInformation) == 24 && offsetof(ShrinkVolumeInformation, newNumberOfSectors) == 16);

inline constexpr uint32_t kFileFsAttributeInformationClass = 5;

/// FILE_FS_ATTRIBUTE_INFORMATION with room for a name of 74 units; the name is not terminated.
struct FileFsAttributeInformation {
    uint32_t fileSystemAttributes;
    int32_t maximumComponentNameLength;
    uint32_t fileSystemNameBytes;
    char16_t fileSystemName[74];
};
static_assert(sizeof(FileFsAttributeInformation) == 160);
static_assert(offsetof(FileFsAttributeInformation, fileSystemName) == 12);

}  // namespace kk
