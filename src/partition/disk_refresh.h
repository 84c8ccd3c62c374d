#pragma once

#include <cstdint>

#include "core/device_file.h"

namespace kk {

inline constexpr uint32_t kIoctlDiskUpdateProperties = 0x70140;

/// Has the disk driver read the partition table again. Whether it does is not known: its status is ignored.
void RefreshDiskProperties(DeviceFile& disk);

}  // namespace kk
