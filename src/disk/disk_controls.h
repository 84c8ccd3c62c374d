#pragma once

#include <cstddef>
#include <cstdint>

#include "core/guid.h"

// Control requests of disk drivers: codes and records of the Windows SDK's winioctl.h.

namespace kk {

inline constexpr uint32_t kIoctlDiskGetDriveGeometryEx = 0x700A0;
inline constexpr uint32_t kIoctlDiskGetDriveLayoutEx = 0x70050;
inline constexpr uint32_t kIoctlDiskUpdateProperties = 0x70140;
inline constexpr uint32_t kIoctlDiskGrowPartition = 0x7C0D0;

/// The first 40 bytes of DISK_GEOMETRY_EX; drivers append partition and detection data to them.
struct DiskGeometryEx {
    int64_t cylinders;
    uint32_t mediaType;
    uint32_t tracksPerCylinder;
    uint32_t sectorsPerTrack;
    uint32_t bytesPerSector;
    int64_t diskSize;
    uint64_t data;
};
static_assert(sizeof(DiskGeometryEx) == 40);
static_assert(offsetof(DiskGeometryEx, bytesPerSector) == 20 && offsetof(DiskGeometryEx, diskSize) == 24);

/// PARTITION_STYLE: the system's numbers, which are not the ones that this library reports.
enum class WirePartitionStyle : uint32_t { Mbr = 0, Gpt = 1, Raw = 2 };

/// PARTITION_INFORMATION_MBR.
struct PartitionInformationMbr {
    uint8_t partitionType;
    uint8_t bootIndicator;
    uint8_t recognizedPartition;
    uint32_t hiddenSectors;
    Guid partitionId;
};
static_assert(sizeof(PartitionInformationMbr) == 24 && offsetof(PartitionInformationMbr, hiddenSectors) == 4);

/// Units of a partition name in a GPT entry (UEFI 2.10, 5.3.3).
inline constexpr uint32_t kPartitionNameUnits = 36;

/// PARTITION_INFORMATION_GPT.
struct PartitionInformationGpt {
    Guid partitionType;
    Guid partitionId;
    uint64_t attributes;
    char16_t name[kPartitionNameUnits];
};
static_assert(sizeof(PartitionInformationGpt) == 112 && offsetof(PartitionInformationGpt, name) == 40);

/// PARTITION_INFORMATION_EX.
struct PartitionInformationEx {
    WirePartitionStyle style;
    int64_t startingOffset;
    int64_t partitionLength;
    uint32_t partitionNumber;
    uint8_t rewritePartition;
    uint8_t isServicePartition;
    union {
        PartitionInformationMbr mbr;
        PartitionInformationGpt gpt;
    };
};
static_assert(sizeof(PartitionInformationEx) == 144 && offsetof(PartitionInformationEx, mbr) == 32);
static_assert(offsetof(PartitionInformationEx, startingOffset) == 8);
static_assert(offsetof(PartitionInformationEx, partitionNumber) == 24);

/// DRIVE_LAYOUT_INFORMATION_MBR.
struct DriveLayoutInformationMbr {
    uint32_t signature;
    uint32_t checkSum;
};

/// DRIVE_LAYOUT_INFORMATION_GPT.
struct DriveLayoutInformationGpt {
    Guid diskId;
    int64_t startingUsableOffset;
    int64_t usableLength;
    uint32_t maxPartitionCount;
};
static_assert(sizeof(DriveLayoutInformationGpt) == 40);

/// The head of DRIVE_LAYOUT_INFORMATION_EX; `partitionCount` PartitionInformationEx records follow it.
struct DriveLayoutInformationEx {
    WirePartitionStyle partitionStyle;
    uint32_t partitionCount;
    union {
        DriveLayoutInformationMbr mbr;
        DriveLayoutInformationGpt gpt;
    };
};
static_assert(sizeof(DriveLayoutInformationEx) == 48 && offsetof(DriveLayoutInformationEx, gpt) == 8);

/// DISK_GROW_PARTITION.
struct DiskGrowPartition {
    uint32_t partitionNumber;
    uint32_t padding;
    int64_t bytesToGrow;  // the difference, not the new length
};
static_assert(sizeof(DiskGrowPartition) == 16 && offsetof(DiskGrowPartition, bytesToGrow) == 8);

}  // namespace kk
