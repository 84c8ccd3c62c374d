#pragma once

#include <cstdint>

#include "kestrelkit/kestrelkit.h"
#include "machine/pe_loader.h"

// A real system's heap gives a large block memory of its own, which begins with a cache line; the machine's heap begins
// every block at some multiple of 16. The processor moves data to and from blocks that begin within a cache line up to a
// fourth more slowly, so that chance would decide how a backup compares to a program with a page-aligned buffer.

namespace bench {

/// RtlAllocateHeap of the machine, but blocks of 1 MiB and more begin with a cache line.
void* KK_CALL AllocateAligned(void* heap, uint32_t flags, uint64_t size);

/// RtlFreeHeap for these blocks and all others.
uint8_t KK_CALL FreeAligned(void* heap, uint32_t flags, void* block);

/// The machine's ntdll with that heap.
machine::ImportResolver ResolverWithAlignedHeap();

}  // namespace bench
