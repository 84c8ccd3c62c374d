#pragma once

#include <cstdint>

#include "core/array.h"
#include "disk/disk_layout.h"
#include "disk/mount_points.h"

namespace kk {

/// What the caller of a backup asked for.
struct BackupRequest {
    uint32_t diskNumber;
    const char16_t* imagePath;
    const uint32_t* partitionNumbers;
    uint32_t partitionCount;  // 0: every partition
    bool usedBlocksOnly;
    bool removeOmitted;     // leave partitions that were not chosen out of the image's table; set whenever `compact` is
    uint32_t useSnapshots;  // as the caller gave it; non-zero is true
    const char* backupSetId;
    uint32_t setDiskIndex;
    uint32_t setDiskCount;
    uint32_t compact;  // as the caller gave it; non-zero is true
};

/// A partition that goes into the image.
struct BackupPlanEntry {
    const PartitionEntry* partition;                // in the source's DiskLayout
    char16_t volumeDevice[kDevicePathUnits];        // empty: no volume starts where the partition does
    uint32_t clusterSize;                           // bytes, 0 unless NTFS
    char16_t snapshotVolumeName[kVolumeNameUnits];  // empty: not to be read from a snapshot
    bool usedBlocks;
    uint64_t imageOffset;  // bytes from the image disk's start
};

using BackupPlan = Array<BackupPlanEntry>;

/// Whether the caller chose this partition.
[[nodiscard]] bool IsSelected(const BackupRequest& request, const PartitionEntry& partition);

/// Plans the chosen partitions in layout order. `layout` must outlive the plan and not change. KK_STATUS_NO_MEMORY.
[[nodiscard]] KK_STATUS BuildBackupPlan(const BackupRequest& request, const DiskLayout& layout, BackupPlan& plan);

/// Gives every entry of the plan its place in the image and returns the size of the image's disk, or the largest
/// number when that would not fit 64 bits. A compact plan is put into the order of the partitions on the disk.
[[nodiscard]] uint64_t PlacePartitions(const BackupRequest& request, uint64_t diskSize, uint32_t sectorSize,
                                       BackupPlan& plan);

}  // namespace kk
