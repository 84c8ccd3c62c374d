#pragma once

#include <cstddef>
#include <cstdint>

#include "core/device_file.h"

namespace kk {

/// Finds the volume that has an extent at byte `start` of disk `disk`, among the volumes 1 to 127 in rising order.
/// On success `devicePath` receives its device name (`\Device\HarddiskVolumeN`), cut so that the terminator fits into
/// `capacity` units, and `clusterSize`, which may be null, the bytes of an NTFS cluster, 0 for other file systems.
/// Otherwise both are untouched.
[[nodiscard]] bool FindVolumeForPartition(uint32_t disk, uint64_t start, char16_t* devicePath, size_t capacity,
                                          uint32_t* clusterSize);

/// Opens the volume that FindVolumeForPartition finds, for writing. False when there is none or it does not open.
[[nodiscard]] bool OpenVolumeForPartition(uint32_t disk, uint64_t start, DevicePtr& volume);

}  // namespace kk
