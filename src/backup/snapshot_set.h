#pragma once

#include <cstddef>
#include <cstdint>

#include "backup/vss_interfaces.h"
#include "disk/mount_points.h"

namespace kk {

/// Volumes that one set takes; further ones are read live.
inline constexpr uint32_t kMaxSnapshots = 16;

inline constexpr size_t kSnapshotDeviceUnits = 300;

/// A volume of the set and the device that shows its snapshot.
struct SnapshotTableEntry {
    char16_t volumeName[kVolumeNameUnits];
    char16_t snapshotDevice[kSnapshotDeviceUnits];  // empty: the volume has no snapshot
};
static_assert(sizeof(SnapshotTableEntry) == 856);

/// Snapshots of several volumes, taken at one moment. They end with this object.
struct SnapshotSet {
    SnapshotSet() = default;
    SnapshotSet(const SnapshotSet&) = delete;
    SnapshotSet& operator=(const SnapshotSet&) = delete;
    ~SnapshotSet();

    VssBackupComponents* components = nullptr;
    bool comInitialized = false;
    SnapshotTableEntry* table = nullptr;  // kMaxSnapshots entries
    uint32_t count = 0;                   // entries in use
};

/// Takes snapshots of the first 16 of `count` volumes, named by their GUID paths. Waits for the system's writers
/// without a limit, on purpose: only they know how long they need. KK_STATUS_NOT_FOUND without the service,
/// KK_STATUS_NO_MEMORY, KK_STATUS_UNSUCCESSFUL when the service gives no object, or the HRESULT of the failing call;
/// the set may then be partly made and is still to be released. A success may come without an object too, so callers
/// look at `components`.
[[nodiscard]] KK_STATUS CreateSnapshots(SnapshotSet& set, const char16_t* const* volumeNames, uint32_t count);

/// The device that shows the snapshot of the volume of exactly this name, or null.
[[nodiscard]] const char16_t* FindSnapshotDevice(const SnapshotSet& set, const char16_t* volumeName);

/// Ends the snapshots and leaves COM. Safe on any set, also twice.
void ReleaseSnapshots(SnapshotSet& set);

}  // namespace kk
