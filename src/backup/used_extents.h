#pragma once

#include <cstdint>

#include "backup/volume_extent.h"
#include "core/array.h"
#include "kestrelkit/kestrelkit.h"

namespace kk {

/// Lists the runs of clusters that the file system of a volume has in use, in rising order, none touching another.
/// `path` may be a live volume or a snapshot. KK_STATUS_INVALID_PARAMETER when `clusterSize` is 0, the status of the
/// failing open or request, KK_STATUS_UNSUCCESSFUL when memory runs out or the answers make no sense. After a failure
/// the list holds a part of the runs. A run for which the list cannot grow is left out without a failure.
[[nodiscard]] KK_STATUS GetVolumeUsedExtents(const char16_t* path, uint32_t clusterSize, Array<VolumeExtent>& extents);

}  // namespace kk
