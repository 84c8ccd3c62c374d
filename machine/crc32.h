#pragma once

#include <cstdint>
#include <span>

namespace machine {

/// The CRC of the GPT: reflected polynomial 0xEDB88320, as everywhere.
uint32_t Crc32(std::span<const uint8_t> bytes);

}  // namespace machine
