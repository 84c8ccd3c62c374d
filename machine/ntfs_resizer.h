#pragma once

#include <cstdint>

#include "machine/ntfs_reader.h"
#include "machine/volume.h"

namespace machine {

/// Makes the NTFS file system of a volume `sectors` long, the copy of the boot sector at its end included, by the
/// host's `ntfsresize`, which moves clusters out of the way. Only blocks that change are written. Leaves the volume as
/// the real system does: clean, and with a boot sector that counts every sector before the copy.
/// Disk full when the contents do not fit; corrupt when the tools do not trust the file system.
Status ResizeNtfs(Volume& volume, const NtfsGeometry& geometry, uint64_t sectors);

}  // namespace machine
