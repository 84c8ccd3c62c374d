#pragma once

#include <cstdint>

#include "core/heap_block.h"
#include "image/vhdx_reader.h"

namespace kk {

/// Reads sector `lba` of an image's disk into a new block, which holds at least what the structures in it take. Of
/// sectors larger than any disk has only the beginning is read: the size is the image's word and may be gigabytes.
/// KK_STATUS_UNSUCCESSFUL when memory ran out; the status of the failing read.
[[nodiscard]] KK_STATUS ReadImageSector(VhdxReader& reader, uint64_t lba, HeapBlock& sector);

}  // namespace kk
