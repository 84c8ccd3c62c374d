#pragma once

#include <cstdint>

#include "core/device_file.h"

namespace kk {

/// Bytes moved at a time, and the size of the one buffer of a copy.
inline constexpr uint32_t kTransferBytes = 0x800000;

/// Writes what is not all zero. Zeros are left out, on purpose, as most of an image is zeros: the target keeps what it
/// held there.
[[nodiscard]] KK_STATUS WriteUnlessZero(DeviceFile& target, uint64_t offset, const uint8_t* bytes, uint32_t length);

}  // namespace kk
