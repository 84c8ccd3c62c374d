#pragma once

#include <cstdint>

namespace kk {

/// Bytes moved at a time, and the size of the one buffer of a copy.
inline constexpr uint32_t kTransferBytes = 0x800000;

}  // namespace kk
