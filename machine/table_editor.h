#pragma once

#include <cstdint>

#include "machine/layout_parser.h"
#include "machine/nt_values.h"
#include "machine/storage.h"

namespace machine {

/// Makes the partition of that number in `layout` longer, or shorter when the difference is negative: in the table on
/// the disk and in `layout`. The start stays. Invalid when there is no such partition, when the new length is not a
/// positive number of whole sectors, or when it would reach into another partition or past the usable end. Not
/// supported on a medium that has no table.
Status ResizePartition(Storage& storage, uint32_t sectorSize, Layout& layout, uint32_t number, int64_t difference);

// The two kinds of tables. Start and length are sectors.
Status ResizeGptEntry(Storage& storage, uint32_t sectorSize, uint64_t start, uint64_t length);
Status ResizeMbrEntry(Storage& storage, uint32_t sectorSize, uint64_t start, uint64_t length);

}  // namespace machine
