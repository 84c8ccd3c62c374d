#include "naive_scan.h"

namespace bench {

std::vector<kk::VolumeExtent> ScanBitByBit(std::span<const uint8_t> bits, uint64_t bitCount, uint32_t clusterSize)
{
    std::vector<kk::VolumeExtent> extents;
    uint64_t runFirst = 0;
    bool open = false;
    for (uint64_t bit = 0; bit < bitCount; ++bit) {
        const bool used = (bits[bit / 8] >> (bit % 8) & 1) != 0;
        if (used && !open) {
            runFirst = bit;
        } else if (!used && open) {
            extents.push_back({runFirst * clusterSize, (bit - runFirst) * clusterSize});
        }
        open = used;
    }
    if (open) {
        extents.push_back({runFirst * clusterSize, (bitCount - runFirst) * clusterSize});
    }
    return extents;
}

}  // namespace bench
