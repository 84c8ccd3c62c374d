#pragma once

#include <cstddef>
#include <cstdint>

namespace kk {

/// A block of the process's default heap, not zeroed, or null. A request of 0 bytes gets 1 byte.
[[nodiscard]] void* MemAlloc(uint64_t size);

/// Gives a block back; null is ignored.
void MemFree(void* block);

// The compiler's own names for these reach the DLL's memory primitives, and in a checked build the checker's.

inline void CopyBytes(void* to, const void* from, size_t count)
{
    __builtin_memcpy(to, from, count);
}

inline void FillBytes(void* to, uint8_t value, size_t count)
{
    __builtin_memset(to, value, count);
}

[[nodiscard]] inline bool SameBytes(const void* a, const void* b, size_t count)
{
    return __builtin_memcmp(a, b, count) == 0;
}

inline void ZeroBytes(void* to, size_t count)
{
    FillBytes(to, 0, count);
}

}  // namespace kk
