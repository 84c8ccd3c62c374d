#include "disk/volume_mounting.h"

#include "core/kernel32_api.h"
#include "core/text.h"
#include "disk/disk_layout.h"
#include "disk/mount_points.h"
#include "disk/volume_lookup.h"

namespace kk {

namespace {

constexpr size_t kVolumePathUnits = 160;
constexpr size_t kDirectoryUnits = 517;

/// Letter, colon, backslash, terminator.
constexpr size_t kLetterPointUnits = 4;

void FormatLetterPoint(char16_t letter, char16_t (&point)[kLetterPointUnits])
{
    point[0] = letter;
    point[1] = u':';
    point[2] = u'\\';
    point[3] = 0;
}

/// The system's reason for a refusal is not looked at.
KK_STATUS MountVolume(const char16_t* point, const char16_t* volumePath)
{
    return GetKernel32Api().setVolumeMountPointW(point, volumePath) != 0 ? KK_STATUS_SUCCESS : KK_E_ACCESSDENIED;
}

}  // namespace

KK_STATUS SetDriveLetter(uint32_t disk, uint64_t start, char16_t letter)
{
    if (!BindKernel32()) {
        return KK_STATUS_NOT_FOUND;
    }
    char16_t devicePath[kDevicePathUnits];
    if (!FindVolumeForPartition(disk, start, devicePath, kDevicePathUnits, nullptr)) {
        return KK_STATUS_INVALID_PARAMETER;
    }
    char16_t volumePath[kVolumePathUnits];
    GetVolumeGuidPath(devicePath, volumePath, kVolumePathUnits);

    char16_t point[kLetterPointUnits];
    if (char16_t present[kDriveLetterUnits]; GetDriveLetter(devicePath, present)) {
        FormatLetterPoint(present[0], point);
        (void)GetKernel32Api().deleteVolumeMountPointW(point);
    }
    if (letter == 0) {
        return KK_STATUS_SUCCESS;
    }
    // Only now, on purpose: a volume that cannot be mounted loses its old letter all the same.
    if (volumePath[0] == 0) {
        return KK_STATUS_NO_MEDIA_IN_DEVICE;
    }
    FormatLetterPoint(letter, point);
    return MountVolume(point, volumePath);
}

KK_STATUS AddMountPoint(uint32_t disk, uint64_t start, const char16_t* directory)
{
    if (!BindKernel32()) {
        return KK_STATUS_NOT_FOUND;
    }
    if (directory == nullptr || directory[0] == 0) {
        return KK_STATUS_INVALID_PARAMETER;
    }
    // Not the status that SetDriveLetter has for the same case, on purpose: each is what callers of its export know.
    char16_t devicePath[kDevicePathUnits];
    if (!FindVolumeForPartition(disk, start, devicePath, kDevicePathUnits, nullptr)) {
        return KK_STATUS_NO_MEDIA_IN_DEVICE;
    }
    char16_t volumePath[kVolumePathUnits];
    GetVolumeGuidPath(devicePath, volumePath, kVolumePathUnits);
    if (volumePath[0] == 0) {
        return KK_STATUS_NO_MEDIA_IN_DEVICE;
    }

    // The cut comes first: there is always room for the backslash that the system insists on.
    char16_t point[kDirectoryUnits + 2];
    CopyText(point, kDirectoryUnits + 1, directory);
    size_t length = TextLength(point);
    if (point[length - 1] != u'\\') {
        AppendUnit(point, kDirectoryUnits + 2, length, u'\\');
    }
    return MountVolume(point, volumePath);
}

}  // namespace kk
