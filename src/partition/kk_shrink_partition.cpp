#include "core/checked_math.h"
#include "core/file_opener.h"
#include "core/status.h"
#include "disk/disk_layout.h"
#include "disk/mount_points.h"
#include "disk/volume_controls.h"
#include "disk/volume_lookup.h"
#include "disk/volume_mounting.h"
#include "partition/disk_refresh.h"
#include "partition/partition_alignment.h"
#include "partition/table_edit.h"

namespace kk {

namespace {

/// A partition, the layout in which it was found, and the size that it is to get.
struct Shrinking {
    uint32_t disk;
    uint64_t start;
    const DiskLayout& layout;
    uint64_t target;  // bytes
};

KK_STATUS RequestShrink(DeviceFile& volume, ShrinkRequest request, uint64_t sectors)
{
    const ShrinkVolumeInformation information = {
        .request = request, .padding = 0, .flags = 0, .newNumberOfSectors = static_cast<int64_t>(sectors)};
    return volume.Control(kFsctlShrinkVolume, &information, sizeof(information), nullptr, 0, nullptr);
}

/// A failing request is not followed by one to abort, on purpose: closing the volume ends what was prepared.
KK_STATUS ShrinkFileSystem(const char16_t* devicePath, uint64_t sectors)
{
    DevicePtr volume;
    KK_TRY(OpenDevice(devicePath, true, volume));
    KK_TRY(RequestShrink(*volume, ShrinkRequest::Prepare, sectors));
    return RequestShrink(*volume, ShrinkRequest::Commit, 0);
}

/// True when the table needs no edit: the system may have shrunk the partition with its file system. What is at most
/// one alignment unit too long counts as shrunk, on purpose: such a rest does no harm. A partition that is no longer
/// seen does not count.
bool IsShrunk(const Shrinking& shrinking)
{
    DiskLayout layout;
    if (Failed(ReadDiskLayout(shrinking.disk, layout))) {
        return false;
    }
    const PartitionEntry* const partition = FindPartition(layout, shrinking.start);
    return partition != nullptr &&
           (partition->length <= shrinking.target || partition->length - shrinking.target <= kPartitionAlignment);
}

KK_STATUS ShrinkTableEntry(const Shrinking& shrinking)
{
    DevicePtr drive;
    KK_TRY(OpenPhysicalDrive(shrinking.disk, true, drive));
    KK_TRY(ResizePartitionEntry(*drive, shrinking.layout.sectorSize, shrinking.layout.style, shrinking.start,
                                shrinking.target));
    RefreshDiskProperties(*drive);
    return KK_STATUS_SUCCESS;
}

/// The volume may have come back without its letter, or with another one.
void RestoreDriveLetter(const Shrinking& shrinking, char16_t letter)
{
    char16_t devicePath[kDevicePathUnits];
    if (!FindVolumeForPartition(shrinking.disk, shrinking.start, devicePath, kDevicePathUnits, nullptr)) {
        return;
    }
    char16_t present[kDriveLetterUnits];
    if (!GetDriveLetter(devicePath, present) || present[0] != letter) {
        (void)SetDriveLetter(shrinking.disk, shrinking.start, letter);
    }
}

KK_STATUS ShrinkPartition(uint32_t disk, uint64_t start, uint64_t newSize)
{
    DiskLayout layout;
    KK_TRY(ReadPartitionedLayout(disk, layout));
    const PartitionEntry* const partition = FindPartition(layout, start);
    if (partition == nullptr) {
        return KK_STATUS_INVALID_PARAMETER;
    }
    const Shrinking shrinking = {disk, start, layout, SaturatingRoundUp(newSize, kPartitionAlignment)};
    // A partition without a volume is never shrunk: nobody could say what its end holds.
    char16_t devicePath[kDevicePathUnits];
    if (shrinking.target >= partition->length ||
        !FindVolumeForPartition(disk, start, devicePath, kDevicePathUnits, nullptr)) {
        return KK_STATUS_INVALID_PARAMETER;
    }
    char16_t letter[kDriveLetterUnits];
    const bool hadLetter = GetDriveLetter(devicePath, letter);

    KK_TRY(ShrinkFileSystem(devicePath, shrinking.target / layout.sectorSize));
    if (!IsShrunk(shrinking)) {
        KK_TRY(ShrinkTableEntry(shrinking));
    }
    if (hadLetter) {
        RestoreDriveLetter(shrinking, letter[0]);
    }
    return KK_STATUS_SUCCESS;
}

}  // namespace

}  // namespace kk

KK_STATUS KK_CALL KkShrinkPartition(uint32_t diskNumber, uint64_t startOffset, uint64_t newSize)
{
    return kk::ShrinkPartition(diskNumber, startOffset, newSize);
}
