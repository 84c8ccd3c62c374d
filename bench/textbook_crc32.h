#pragma once

#include <cstdint>
#include <span>

namespace bench {

/// The checksum of tables as textbooks give it: one bit after the other, without branches.
uint32_t TextbookCrc32(std::span<const uint8_t> bytes);

}  // namespace bench
