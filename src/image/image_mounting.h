#pragma once

#include <cstdint>

#include "core/nt_types.h"

namespace kk {

/// A Win32 error as a status: 0x8007xxxx with its low 16 bits, also for 0.
[[nodiscard]] constexpr KK_STATUS StatusFromWin32(uint32_t error)
{
    return static_cast<KK_STATUS>(0x80070000 | (error & 0xFFFF));
}

/// Attaches an opened image for good, letters allowed, and closes the handle in any case. `diskNumber`, which may be
/// null, receives N of \\.\PhysicalDriveN; it is untouched after a failure and when the disk's name does not end in a
/// digit. The service's error as a status. Its table must be bound.
[[nodiscard]] KK_STATUS AttachImageHandle(NtHandle handle, uint32_t* diskNumber);

/// What KkMountImage does.
[[nodiscard]] KK_STATUS MountImage(const char16_t* path, uint32_t* diskNumber);

/// What KkUnmountImage does.
[[nodiscard]] KK_STATUS UnmountImage(const char16_t* path);

}  // namespace kk
