#include "core/zero_scan.h"

#include "core/bytes.h"

namespace kk {

bool IsAllZero(const uint8_t* bytes, size_t count)
{
    constexpr size_t words = 16;
    constexpr size_t step = words * sizeof(uint64_t);
    for (; count >= step; bytes += step, count -= step) {
        uint64_t seen = 0;
        for (size_t i = 0; i < words; ++i) {
            seen |= LoadUnaligned<uint64_t>(bytes + i * sizeof(uint64_t));
        }
        if (seen != 0) {
            return false;
        }
    }
    for (; count > 0; ++bytes, --count) {
        if (*bytes != 0) {
            return false;
        }
    }
    return true;
}

}  // namespace kk
