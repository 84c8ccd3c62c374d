#pragma once

#include <cstdint>

#include "core/nt_types.h"
#include "image/virtual_disk_api.h"

namespace kk {

/// A new virtual-disk file and its attachment as a disk, which lasts until it is detached or this object ends. All
/// troubles of the service are KK_STATUS_UNSUCCESSFUL, on purpose: a backup tells that its image failed, not why. A
/// missing entry point is KK_STATUS_NOT_FOUND.
class VirtualDiskFile {
public:
    VirtualDiskFile() = default;
    VirtualDiskFile(const VirtualDiskFile&) = delete;
    VirtualDiskFile& operator=(const VirtualDiskFile&) = delete;
    ~VirtualDiskFile();

    /// Creates a growing VHDX file with `maximumSize` bytes of disk; nothing is rounded here.
    [[nodiscard]] KK_STATUS Create(const char16_t* path, uint64_t maximumSize, uint32_t logicalSectorSize,
                                   uint32_t blockSize);

    /// Attaches the disk for reading and writing, without drive letters, and learns its device path.
    /// KK_STATUS_INVALID_PARAMETER when there is no file yet.
    [[nodiscard]] KK_STATUS Attach();

    /// Detaches the disk if it is attached; it counts as detached afterwards even when that failed.
    [[nodiscard]] KK_STATUS Detach();

    /// `\\.\PhysicalDriveN`, after a successful Attach.
    [[nodiscard]] const char16_t* PhysicalPath() const { return physicalPath_; }

private:
    NtHandle handle_ = nullptr;
    bool attached_ = false;
    char16_t physicalPath_[kPhysicalPathUnits] = {};
};

}  // namespace kk
