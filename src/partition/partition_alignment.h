#pragma once

#include <cstdint>

namespace kk {

/// Partitions that the library places begin at multiples of this many bytes and never below it; the sizes that it
/// shrinks them to are multiples too.
inline constexpr uint64_t kPartitionAlignment = 0x100000;

}  // namespace kk
