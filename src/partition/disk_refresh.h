#pragma once

#include "core/device_file.h"

namespace kk {

/// Has the disk driver read the partition table again. Whether it does is not known: its status is ignored.
void RefreshDiskProperties(DeviceFile& disk);

}  // namespace kk
