#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "backup/used_extents.h"

namespace bench {

/// What an unhurried programmer writes: looks at one bit after the other and appends the runs of set ones to a list,
/// which doubles as the library's does.
std::vector<kk::VolumeExtent> ScanBitByBit(std::span<const uint8_t> bits, uint64_t bitCount, uint32_t clusterSize);

}  // namespace bench
