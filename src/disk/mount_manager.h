#pragma once

#include <cstddef>
#include <cstdint>

// The mount manager's query: code and records of the Windows SDK's mountmgr.h.

namespace kk {

inline constexpr char16_t kMountManagerDevice[] = u"\\Device\\MountPointManager";
inline constexpr uint32_t kIoctlMountmgrQueryPoints = 0x6D0008;

/// MOUNTMGR_MOUNT_POINT. Offsets count from the start of the whole answer, lengths are bytes, names are not
/// terminated and may lie at odd addresses. All zero as a query asks for every mount point.
struct MountPointRecord {
    uint32_t symbolicLinkNameOffset;
    uint16_t symbolicLinkNameLength;
    uint16_t padding6;
    uint32_t uniqueIdOffset;
    uint16_t uniqueIdLength;
    uint16_t padding14;
    uint32_t deviceNameOffset;
    uint16_t deviceNameLength;
    uint16_t padding22;
};
static_assert(sizeof(MountPointRecord) == 24 && offsetof(MountPointRecord, deviceNameOffset) == 16);

/// The head of MOUNTMGR_MOUNT_POINTS; `numberOfMountPoints` MountPointRecord records follow it.
struct MountPointsHeader {
    uint32_t size;  // bytes of the whole answer, also when it did not fit
    uint32_t numberOfMountPoints;
};
static_assert(sizeof(MountPointsHeader) == 8);

}  // namespace kk
