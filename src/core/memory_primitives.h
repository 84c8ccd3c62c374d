#pragma once

#include <cstddef>
#include <cstdint>

// Memory primitives that need nothing else of the process. The string instructions move large blocks at memory speed on
// current processors, and unlike loops they cannot be turned into calls of the functions that they implement.

namespace kk::primitives {

/// Copies forward; the ranges must not overlap unless `to` lies below `from`.
inline void CopyForward(void* to, const void* from, size_t count)
{
    asm volatile("rep movsb" : "+D"(to), "+S"(from), "+c"(count) : : "memory");
}

/// Copies from the last byte down, so that `to` may overlap the end of `from`.
inline void CopyBackward(void* to, const void* from, size_t count)
{
    auto* target = static_cast<volatile uint8_t*>(to);
    auto* source = static_cast<const uint8_t*>(from);
    while (count > 0) {
        --count;
        target[count] = source[count];
    }
}

/// Copies between ranges that may overlap. Whether they do is not asked: nothing here moves much, and the slow way up is
/// right for both.
inline void Move(void* to, const void* from, size_t count)
{
    if (reinterpret_cast<uintptr_t>(to) >= reinterpret_cast<uintptr_t>(from)) {
        CopyBackward(to, from, count);
    } else {
        CopyForward(to, from, count);
    }
}

inline void Fill(void* to, uint8_t value, size_t count)
{
    asm volatile("rep stosb" : "+D"(to), "+c"(count) : "a"(value) : "memory");
}

/// 0 when equal, else 1 or -1 as the first differing byte of `a` is the greater or the smaller, unsigned.
[[nodiscard]] inline int Compare(const void* a, const void* b, size_t count)
{
    auto* left = static_cast<const volatile uint8_t*>(a);
    auto* right = static_cast<const volatile uint8_t*>(b);
    for (size_t i = 0; i < count; ++i) {
        const uint8_t x = left[i];
        const uint8_t y = right[i];
        if (x != y) {
            return x > y ? 1 : -1;
        }
    }
    return 0;
}

}  // namespace kk::primitives
