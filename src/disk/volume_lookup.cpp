#include "disk/volume_lookup.h"

#include "core/checked_math.h"
#include "core/file_opener.h"
#include "core/status.h"
#include "core/text.h"
#include "disk/disk_layout.h"
#include "disk/volume_controls.h"

namespace kk {

namespace {

// A bound on purpose: a system without the volume would be asked for ever. The public header tells of it.
constexpr uint32_t kLastVolumeNumber = 127;

bool HasExtentAt(DeviceFile& volume, uint32_t disk, uint64_t start)
{
    VolumeDiskExtents answer = {};
    uint32_t returned = 0;
    if (Failed(volume.Control(kIoctlVolumeGetVolumeDiskExtents, nullptr, 0, &answer, sizeof(answer), &returned)) ||
        returned < offsetof(VolumeDiskExtents, extents)) {
        return false;
    }
    const uint64_t room = (returned - offsetof(VolumeDiskExtents, extents)) / sizeof(DiskExtent);
    const uint64_t count = Min(uint64_t{answer.numberOfDiskExtents}, Min(room, uint64_t{kVolumeDiskExtentsRoom}));
    for (uint64_t i = 0; i < count; ++i) {
        const DiskExtent& extent = answer.extents[i];
        if (extent.diskNumber == disk && static_cast<uint64_t>(extent.startingOffset) == start) {
            return true;
        }
    }
    return false;
}

uint32_t NtfsClusterSize(DeviceFile& volume)
{
    NtfsVolumeData data = {};
    const KK_STATUS status = volume.Control(kFsctlGetNtfsVolumeData, nullptr, 0, &data, sizeof(data), nullptr);
    return Failed(status) ? 0 : data.bytesPerCluster;
}

}  // namespace

bool FindVolumeForPartition(uint32_t disk, uint64_t start, char16_t* devicePath, size_t capacity, uint32_t* clusterSize)
{
    for (uint32_t number = 1; number <= kLastVolumeNumber; ++number) {
        char16_t path[kDevicePathUnits];
        size_t position = 0;
        AppendText(path, kDevicePathUnits, position, u"\\Device\\HarddiskVolume");
        AppendDecimal(path, kDevicePathUnits, position, number);

        DevicePtr volume;
        if (Failed(OpenDevice(path, false, volume)) || !HasExtentAt(*volume, disk, start)) {
            continue;
        }
        // Asked for whoever wants to know, so that every lookup makes the same requests.
        const uint32_t size = NtfsClusterSize(*volume);
        if (clusterSize != nullptr) {
            *clusterSize = size;
        }
        CopyText(devicePath, capacity, path);
        return true;
    }
    return false;
}

bool OpenVolumeForPartition(uint32_t disk, uint64_t start, DevicePtr& volume)
{
    char16_t path[kDevicePathUnits];
    return FindVolumeForPartition(disk, start, path, kDevicePathUnits, nullptr) &&
           !Failed(OpenDevice(path, true, volume));
}

}  // namespace kk
