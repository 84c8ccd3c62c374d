#pragma once

#include <cstdint>

namespace kk {

/// Partitions that the library places begin at multiples of this many bytes, and never before the first.
inline constexpr uint64_t kPartitionAlignment = 0x100000;

}  // namespace kk
