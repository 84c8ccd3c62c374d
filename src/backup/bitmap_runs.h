#pragma once

#include <cstdint>

#include "backup/volume_extent.h"
#include "core/array.h"

namespace kk {

/// Joins the set bits of successive pieces of a cluster bitmap to runs. A run that goes on in the next piece is one.
class BitmapRuns {
public:
    BitmapRuns(uint32_t clusterSize, Array<VolumeExtent>& extents) : clusterSize_(clusterSize), extents_(extents) {}

    /// Adds bits `first` to `end` - 1 of a piece whose bit 0 stands for cluster `firstCluster`. The bits lie in whole
    /// 64-bit words, lowest first.
    void Add(const uint8_t* bits, uint64_t first, uint64_t end, uint64_t firstCluster);

    /// Closes the run that is still open.
    void Finish();

private:
    /// The clusters' state changes at `cluster`.
    void PassEdge(uint64_t cluster);

    uint32_t clusterSize_;
    Array<VolumeExtent>& extents_;
    bool open_ = false;
    uint64_t runFirst_ = 0;  // cluster
    uint64_t runEnd_ = 0;    // cluster behind the run, as far as it is known
};

}  // namespace kk
