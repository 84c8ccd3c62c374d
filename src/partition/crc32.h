#pragma once

#include <cstdint>

namespace kk {

/// The CRC-32 that the GPT is checked with (UEFI 2.10, 5.3.2): reflected polynomial 0xEDB88320, initial value all
/// ones, complemented result. 0 for no bytes.
[[nodiscard]] uint32_t Crc32(const void* bytes, uint64_t length);

}  // namespace kk
