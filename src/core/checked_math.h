#pragma once

#include <cstdint>

namespace kk {

inline constexpr uint64_t kMaxU64 = UINT64_MAX;

// Sums and products of numbers that come from disks and from the system. The largest number stands for "more than
// anything", so a comparison comes out as it would with the true value.

[[nodiscard]] constexpr uint64_t SaturatingAdd(uint64_t a, uint64_t b)
{
    return b > kMaxU64 - a ? kMaxU64 : a + b;
}

[[nodiscard]] constexpr uint64_t SaturatingMultiply(uint64_t a, uint64_t b)
{
    return a != 0 && b > kMaxU64 / a ? kMaxU64 : a * b;
}

/// The smallest multiple of `unit` that is not below `value`.
[[nodiscard]] constexpr uint64_t SaturatingRoundUp(uint64_t value, uint64_t unit)
{
    const uint64_t count = value / unit + (value % unit != 0 ? 1 : 0);
    return SaturatingMultiply(count, unit);
}

template <typename T>
[[nodiscard]] constexpr T Min(T a, T b)
{
    return b < a ? b : a;
}

template <typename T>
[[nodiscard]] constexpr T Max(T a, T b)
{
    return a < b ? b : a;
}

}  // namespace kk
