#pragma once

#include "machine/device.h"
#include "machine/ntfs_reader.h"

namespace machine {

/// The answer to FSCTL_GET_VOLUME_BITMAP. The first cluster is rounded down to a multiple of `roundingUnit`, the size
/// counts the clusters from there to the end of the volume, and as many bits follow as there is room for.
ControlAnswer AnswerVolumeBitmap(NtfsReader& reader, const ControlRequest& request, uint64_t roundingUnit);

}  // namespace machine
