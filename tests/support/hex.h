#pragma once

#include <cstdint>
#include <span>
#include <string>

/// Two digits for each byte.
inline std::string HexOf(std::span<const uint8_t> bytes)
{
    constexpr char digits[] = "0123456789abcdef";
    std::string text;
    for (const uint8_t byte : bytes) {
        text += digits[byte >> 4];
        text += digits[byte & 0x0F];
    }
    return text;
}
