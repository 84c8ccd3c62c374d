#pragma once

#include "core/device_file.h"

namespace kk {

/// Locks a volume for this handle and dismounts its file system. Whether either worked is not asked: writes that a file
/// system then refuses tell it. The second is sent even when the first was refused, on purpose: a dismount needs no
/// lock.
void LockAndDismountVolume(DeviceFile& volume);

/// Ends the lock, if there is one; the next to open the volume finds its file system mounted afresh.
void UnlockVolume(DeviceFile& volume);

/// Extends the NTFS file system of the volume at that path to the volume's size. Best effort, on purpose: a smaller
/// file system does no harm.
void ExtendFileSystemToVolume(const char16_t* volumePath);

}  // namespace kk
