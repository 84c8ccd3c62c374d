#pragma once

#include <cstddef>
#include <cstdint>

namespace kk {

/// True when all bytes are zero, and for none at all. Stops at the first step that holds another value.
[[nodiscard]] bool IsAllZero(const uint8_t* bytes, size_t count);

}  // namespace kk
