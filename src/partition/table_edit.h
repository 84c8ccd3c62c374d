#pragma once

#include <cstdint>

#include "core/device_file.h"
#include "core/guid.h"
#include "disk/disk_layout.h"
#include "partition/disk_range.h"

namespace kk {

// A live disk's partition table is changed one entry at a time, in the sectors that hold it; the disk driver is told
// afterwards (RefreshDiskProperties). Nothing is checked against the usable area or other entries: callers choose
// ranges. A sector size of 0 means 512.
//
// Failures of all of these:
// - KK_STATUS_NO_MEMORY, also for an entry array of 4 GiB and more
// - KK_STATUS_REGISTRY_CORRUPT: no boot signature, no GPT signature, an entry count or size out of range, a header that
//   no sector could hold, a place whose byte offset exceeds 64 bits
// - KK_STATUS_DISK_FULL: adding, and no entry is unused
// - KK_STATUS_INVALID_PARAMETER: removing or resizing, and no used entry starts there
// - the status of the failing read or write. A GPT whose first copy was written stays changed when the second copy
//   fails, on purpose: the first copy is whole by then, and undoing it could fail too.

/// Adds a partition of `length` bytes at byte `offset`: with `gptType`, a fresh identifier, the usual name and no
/// attributes to both copies of a GPT, with `mbrType` to an MBR, which is what every other style is taken for.
/// `number`, which may be null, receives the filled slot counted from 1, on a GPT the first copy's; it is written as
/// soon as the slot is known, before the disk is.
[[nodiscard]] KK_STATUS AddPartitionEntry(DeviceFile& disk, uint32_t sectorSize, PartitionStyle style, uint64_t offset,
                                          uint64_t length, const Guid& gptType, uint8_t mbrType, uint32_t* number);

/// Adds a partition of the type "basic data", MBR 0x07, as AddPartitionEntry does.
[[nodiscard]] KK_STATUS AddDataPartition(DeviceFile& disk, const DiskLayout& layout, const DiskRange& place);

/// Removes the partition that starts in the sector of byte `offset`.
[[nodiscard]] KK_STATUS RemovePartitionEntry(DeviceFile& disk, uint32_t sectorSize, PartitionStyle style,
                                             uint64_t offset);

/// Makes the partition that starts in the sector of byte `offset` `newLength` bytes long.
[[nodiscard]] KK_STATUS ResizePartitionEntry(DeviceFile& disk, uint32_t sectorSize, PartitionStyle style,
                                             uint64_t offset, uint64_t newLength);

}  // namespace kk
