#pragma once

#include <cstddef>
#include <cstdint>

// The allocation bitmap of a volume: code and records of the Windows SDK's winioctl.h.

namespace kk {

inline constexpr uint32_t kFsctlGetVolumeBitmap = 0x9006F;

/// STARTING_LCN_INPUT_BUFFER.
struct StartingLcnInput {
    int64_t startingLcn;
};
static_assert(sizeof(StartingLcnInput) == 8);

/// The head of VOLUME_BITMAP_BUFFER; the bits follow it, lowest bit of the lowest byte first, set means allocated.
/// `startingLcn` may be lower than the one asked for; `bitmapSize` counts the clusters from it to the end of the
/// volume, however few of their bits fitted into the answer.
struct VolumeBitmapHeader {
    int64_t startingLcn;
    int64_t bitmapSize;
};
static_assert(sizeof(VolumeBitmapHeader) == 16);

}  // namespace kk
