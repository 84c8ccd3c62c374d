#pragma once

#include <cstdint>

#include "disk/disk_layout.h"

namespace kk {

/// Bytes of a disk.
struct DiskRange {
    uint64_t start;
    uint64_t length;
};

/// The bytes from the first place in [start, end) where a partition may begin; empty when there is none. It starts at
/// kMaxU64 when that place would lie beyond 64 bits.
[[nodiscard]] DiskRange AlignedRange(uint64_t start, uint64_t end);

/// True when a listed partition lies in the way. The range must not reach past 64 bits.
[[nodiscard]] bool OverlapsPartition(const DiskLayout& layout, const DiskRange& range);

}  // namespace kk
