#pragma once

#include <cstdint>

#include "core/heap_block.h"
#include "image/vhdx_reader.h"

namespace kk {

/// Reads what of `length` bytes from byte `offset` lies on an image's disk into a new block. `bytes` receives how many
/// that are, rounded up to whole multiples of `unit`; the rest of them is zero, as the disk is beyond its end, and the
/// block holds one unit at least. So a structure takes no more memory than the disk has room for it.
/// KK_STATUS_UNSUCCESSFUL when memory ran out; the status of the failing read.
[[nodiscard]] KK_STATUS ReadImageStructure(VhdxReader& reader, uint64_t offset, uint32_t length, uint32_t unit,
                                           HeapBlock& block, uint64_t& bytes);

}  // namespace kk
