#pragma once

#include <cstdint>

namespace kk {

/// A run of clusters in use, in bytes from the volume's start.
struct VolumeExtent {
    uint64_t offset;
    uint64_t length;
};

}  // namespace kk
