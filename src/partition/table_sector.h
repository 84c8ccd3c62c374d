#pragma once

#include <cstdint>

#include "core/checked_math.h"
#include "partition/mbr_format.h"

namespace kk {

/// Bytes to take for a sector, so that the structures in it fit whatever size a disk claims.
[[nodiscard]] constexpr uint64_t SectorBufferBytes(uint32_t sectorSize)
{
    return Max(uint64_t{sectorSize}, uint64_t{sizeof(MasterBootRecord)});
}

/// The last sector, inclusive, of `length` bytes that begin at byte `offset`; wraps when they end in the first sector.
[[nodiscard]] constexpr uint64_t LastLba(uint64_t offset, uint64_t length, uint32_t sectorSize)
{
    return SaturatingAdd(offset, length) / sectorSize - 1;
}

}  // namespace kk
