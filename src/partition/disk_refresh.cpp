#include "partition/disk_refresh.h"

#include "disk/disk_controls.h"

namespace kk {

void RefreshDiskProperties(DeviceFile& disk)
{
    (void)disk.Control(kIoctlDiskUpdateProperties, nullptr, 0, nullptr, 0, nullptr);
}

}  // namespace kk
