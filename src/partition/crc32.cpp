#include "partition/crc32.h"

namespace kk {

uint32_t Crc32(const void* bytes, uint64_t length)
{
    // Bit by bit, on purpose: a table would be a thing to build or to carry, for arrays that usually have 16 KiB.
    constexpr uint32_t polynomial = 0xEDB88320;
    const auto* const data = static_cast<const uint8_t*>(bytes);
    uint32_t crc = 0xFFFFFFFF;
    for (uint64_t i = 0; i < length; ++i) {
        crc ^= data[i];
        for (int bit = 0; bit < 8; ++bit) {
            crc = (crc >> 1) ^ ((crc & 1) != 0 ? polynomial : 0);
        }
    }
    return ~crc;
}

}  // namespace kk
