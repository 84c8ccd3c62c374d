#include "textbook_crc32.h"

namespace bench {

uint32_t TextbookCrc32(std::span<const uint8_t> bytes)
{
    uint32_t crc = ~uint32_t{0};
    for (const uint8_t byte : bytes) {
        crc ^= byte;
        for (int bit = 0; bit < 8; ++bit) {
            crc = (crc >> 1) ^ (0xEDB88320 & (0 - (crc & 1)));
        }
    }
    return ~crc;
}

}  // namespace bench
