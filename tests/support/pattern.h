#pragma once

#include <cstdint>
#include <vector>

/// Bytes that differ from place to place and from those of another seed, none of them zero.
inline std::vector<uint8_t> Pattern(size_t count, uint8_t seed)
{
    std::vector<uint8_t> bytes(count);
    for (size_t i = 0; i < count; ++i) {
        bytes[i] = static_cast<uint8_t>((seed * 31u + i + i / 251) % 255 + 1);
    }
    return bytes;
}
