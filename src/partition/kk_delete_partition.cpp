#include "core/status.h"
#include "disk/disk_layout.h"
#include "disk/volume_lookup.h"
#include "disk/volume_requests.h"
#include "partition/disk_refresh.h"
#include "partition/table_edit.h"

namespace kk {

namespace {

/// Dismounts the partition's volume. A volume in use does not save its partition. The lock ends with the handle.
void DismountVolume(uint32_t disk, uint64_t start)
{
    DevicePtr volume;
    if (OpenVolumeForPartition(disk, start, volume)) {
        LockAndDismountVolume(*volume);
    }
}

KK_STATUS DeletePartition(uint32_t disk, uint64_t start)
{
    DiskLayout layout;
    KK_TRY(ReadPartitionedLayout(disk, layout));
    if (FindPartition(layout, start) == nullptr) {
        return KK_STATUS_INVALID_PARAMETER;
    }
    DismountVolume(disk, start);
    DevicePtr drive;
    KK_TRY(OpenPhysicalDrive(disk, true, drive));
    KK_TRY(RemovePartitionEntry(*drive, layout.sectorSize, layout.style, start));
    RefreshDiskProperties(*drive);
    return KK_STATUS_SUCCESS;
}

}  // namespace

}  // namespace kk

KK_STATUS KK_CALL KkDeletePartition(uint32_t diskNumber, uint64_t startOffset)
{
    return kk::DeletePartition(diskNumber, startOffset);
}
