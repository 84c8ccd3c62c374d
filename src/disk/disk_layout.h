#pragma once

#include <cstdint>

#include "core/array.h"
#include "core/device_file.h"
#include "core/guid.h"
#include "disk/disk_controls.h"
#include "kestrelkit/kestrelkit.h"

namespace kk {

/// The numbers that the exports report; the system's own differ (see WirePartitionStyle).
enum class PartitionStyle : uint32_t {
    Raw = KK_PARTITION_STYLE_RAW,
    Mbr = KK_PARTITION_STYLE_MBR,
    Gpt = KK_PARTITION_STYLE_GPT,
};

/// Bytes in a sector of a disk that does not say.
inline constexpr uint32_t kDefaultSectorSize = 512;

[[nodiscard]] constexpr uint32_t SectorSizeOrDefault(uint32_t sectorSize)
{
    return sectorSize == 0 ? kDefaultSectorSize : sectorSize;
}

/// One used entry of a disk's partition table.
struct PartitionEntry {
    uint32_t number;  // the system's
    uint64_t start;   // bytes from the disk's start
    uint64_t length;  // bytes
    Guid typeGuid;    // zero on MBR disks, as are idGuid and name
    Guid idGuid;
    char16_t name[kPartitionNameUnits];  // not terminated when all units are used
    uint8_t mbrType;                     // 0 on GPT disks
};

/// A disk's geometry and partitions. Extended containers and unused table entries are left out.
struct DiskLayout {
    uint32_t sectorSize = kDefaultSectorSize;
    uint64_t diskSize = 0;  // bytes, 0 when unknown
    PartitionStyle style = PartitionStyle::Raw;
    Guid diskGuid = {};  // zero on MBR disks
    Array<PartitionEntry> partitions;
};

/// Units of the buffers that disk and volume device names are built in.
inline constexpr size_t kDevicePathUnits = 64;

/// Writes `\??\PhysicalDriveN`, cut so that the terminator fits into `capacity` units.
void FormatPhysicalDrivePath(uint32_t disk, char16_t* buffer, size_t capacity);

/// Reads a disk's layout, appending to the partitions that `layout` holds. A disk whose geometry cannot be read keeps
/// the size and sector size that `layout` came with. KK_STATUS_NO_MEMORY, or the status of the failing open or layout
/// request.
[[nodiscard]] KK_STATUS ReadDiskLayout(uint32_t disk, DiskLayout& layout);

/// Reads a disk's layout as ReadDiskLayout does. KK_STATUS_NOT_SUPPORTED when the disk has neither an MBR nor a GPT.
[[nodiscard]] KK_STATUS ReadPartitionedLayout(uint32_t disk, DiskLayout& layout);

/// The partition that starts at byte `start` exactly, or null.
[[nodiscard]] const PartitionEntry* FindPartition(const DiskLayout& layout, uint64_t start);

/// Opens `\??\PhysicalDriveN`.
[[nodiscard]] KK_STATUS OpenPhysicalDrive(uint32_t disk, bool writable, DevicePtr& drive);

}  // namespace kk
