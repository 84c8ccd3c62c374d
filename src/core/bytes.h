#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "core/memory.h"

namespace kk {

/// An unsigned integer stored least significant byte first, at any address. On-disk structures are made of these.
template <typename T>
class LittleEndian {
public:
    constexpr LittleEndian() = default;
    constexpr LittleEndian(T value) { Set(value); }

    [[nodiscard]] constexpr T Get() const
    {
        T value = 0;
        for (size_t i = sizeof(T); i > 0; --i) {
            value = static_cast<T>((static_cast<uint64_t>(value) << 8) | bytes_[i - 1]);
        }
        return value;
    }

    constexpr void Set(T value)
    {
        for (size_t i = 0; i < sizeof(T); ++i) {
            bytes_[i] = static_cast<uint8_t>(static_cast<uint64_t>(value) >> (8 * i));
        }
    }

private:
    static_assert(std::is_unsigned_v<T>);
    uint8_t bytes_[sizeof(T)] = {};
};

using Le16 = LittleEndian<uint16_t>;
using Le32 = LittleEndian<uint32_t>;
using Le64 = LittleEndian<uint64_t>;

/// Reads a value from an address of any alignment.
template <typename T>
[[nodiscard]] T LoadUnaligned(const void* from)
{
    static_assert(std::is_trivially_copyable_v<T>);
    T value;
    CopyBytes(&value, from, sizeof(T));
    return value;
}

}  // namespace kk
