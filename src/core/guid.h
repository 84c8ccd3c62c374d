#pragma once

#include <cstdint>

namespace kk {

/// A GUID as it lies in memory; the on-disk form of the GPT has the same byte order (UEFI 2.10, appendix A).
struct Guid {
    uint32_t data1;
    uint16_t data2;
    uint16_t data3;
    uint8_t data4[8];

    friend bool operator==(const Guid&, const Guid&) = default;
};
static_assert(sizeof(Guid) == 16 && alignof(Guid) == 4);

}  // namespace kk
