#include "disk/volume_requests.h"

#include "core/file_opener.h"
#include "core/nt_types.h"
#include "core/status.h"
#include "disk/disk_layout.h"
#include "disk/volume_controls.h"

namespace kk {

void LockAndDismountVolume(DeviceFile& volume)
{
    (void)volume.Control(kFsctlLockVolume, nullptr, 0, nullptr, 0, nullptr);
    (void)volume.Control(kFsctlDismountVolume, nullptr, 0, nullptr, 0, nullptr);
}

void UnlockVolume(DeviceFile& volume)
{
    (void)volume.Control(kFsctlUnlockVolume, nullptr, 0, nullptr, 0, nullptr);
}

void ExtendFileSystemToVolume(const char16_t* volumePath)
{
    DevicePtr volume;
    if (Failed(OpenDevice(volumePath, true, volume))) {
        return;
    }
    NtfsExtendedVolumeData ntfs = {};
    GetLengthInformation size = {};
    if (Failed(volume->Control(kFsctlGetNtfsVolumeData, nullptr, 0, &ntfs, sizeof(ntfs), nullptr)) ||
        Failed(volume->Control(kIoctlDiskGetLengthInfo, nullptr, 0, &size, sizeof(size), nullptr))) {
        return;
    }
    const uint64_t sectors = static_cast<uint64_t>(size.length) / SectorSizeOrDefault(ntfs.data.bytesPerSector);
    if (sectors > static_cast<uint64_t>(ntfs.data.numberSectors)) {
        (void)volume->Control(kFsctlExtendVolume, &sectors, sizeof(sectors), nullptr, 0, nullptr);
    }
}

}  // namespace kk
