// What a C run-time would bring: the entry point, and the functions that the compiler calls by itself. Part of the DLL
// only; other builds have a run-time.

#include <cstddef>
#include <cstdint>

#include "core/memory_primitives.h"

extern "C" int32_t DllEntry(void* module, uint32_t reason, void* reserved);
extern "C" void* memcpy(void* to, const void* from, size_t count);
extern "C" void* memmove(void* to, const void* from, size_t count);
extern "C" void* memset(void* to, int value, size_t count);
extern "C" int memcmp(const void* a, const void* b, size_t count);

/// Nothing to set up or to tear down: whatever the library needs is created on first use.
int32_t DllEntry(void* /*module*/, uint32_t /*reason*/, void* /*reserved*/)
{
    return 1;
}

void* memcpy(void* to, const void* from, size_t count)
{
    kk::primitives::CopyForward(to, from, count);
    return to;
}

void* memmove(void* to, const void* from, size_t count)
{
    kk::primitives::Move(to, from, count);
    return to;
}

void* memset(void* to, int value, size_t count)
{
    kk::primitives::Fill(to, static_cast<uint8_t>(value), count);
    return to;
}

int memcmp(const void* a, const void* b, size_t count)
{
    return kk::primitives::Compare(a, b, count);
}
