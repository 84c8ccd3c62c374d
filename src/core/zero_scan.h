#pragma once

#include <cstddef>
#include <cstdint>

namespace kk {

/// True when all bytes are zero, and for none at all. Ends at the first others, in steps that keep up with memory.
[[nodiscard]] bool IsAllZero(const uint8_t* bytes, size_t count);

}  // namespace kk
