#pragma once

#include <cstdint>
#include <vector>

#include "machine/volume.h"

namespace bench {

inline constexpr uint32_t kClusterBytes = 4096;

/// What the library has room for in one answer to a bitmap request: 32 GiB of clusters, and a little.
inline constexpr uint64_t kFullRequestClusters = 8'388'672;

/// A cluster bitmap, lowest bit of the lowest byte first.
struct BitmapPattern {
    uint64_t clusterCount = 0;
    std::vector<uint8_t> bytes = {};
};

BitmapPattern EmptyPattern(uint64_t clusterCount);
BitmapPattern FullPattern(uint64_t clusterCount);
/// Every other cluster: the most runs that there can be.
BitmapPattern AlternatingPattern(uint64_t clusterCount);
/// Runs of random length as on a volume that has been in use for years: 39 % used, used runs of 24 clusters and free
/// ones of 38 on the average. The same at every call.
BitmapPattern ClusteredPattern(uint64_t clusterCount);

/// Makes a volume answer as NTFS with that bitmap, which is shared and not copied.
void ScriptBitmap(machine::Volume& volume, std::shared_ptr<const BitmapPattern> pattern);

}  // namespace bench
