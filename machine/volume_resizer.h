#pragma once

#include <cstdint>

#include "machine/volume.h"

namespace machine {

/// FSCTL_EXTEND_VOLUME: the file system grows into the partition. NTFS only; accepted and without effect where there is
/// no file system.
Status ExtendFileSystem(Volume& volume, const ControlRequest& request);

/// FSCTL_SHRINK_VOLUME: first announced, then done or given up, through one open. With `movesNothing` it is refused
/// while clusters behind the new end are in use.
Status ShrinkFileSystem(Volume& volume, uint64_t open, const ControlRequest& request, bool movesNothing);

}  // namespace machine
