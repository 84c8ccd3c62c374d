#pragma once

#include <cstdint>

namespace kk {

/// The system time in units of 100 nanoseconds since 1601, UTC.
[[nodiscard]] int64_t QuerySystemTime();

/// Both halves of a time in 32 bits, as a seed for random numbers.
[[nodiscard]] constexpr uint32_t FoldTime(int64_t time)
{
    return static_cast<uint32_t>(static_cast<uint64_t>(time >> 32)) ^
           static_cast<uint32_t>(static_cast<uint64_t>(time));
}

}  // namespace kk
