#pragma once

#include <cstdint>

#include "kestrelkit/kestrelkit.h"

namespace kk {

/// What KkSetDriveLetter does.
[[nodiscard]] KK_STATUS SetDriveLetter(uint32_t disk, uint64_t start, char16_t letter);

/// What KkAddMountPoint does.
[[nodiscard]] KK_STATUS AddMountPoint(uint32_t disk, uint64_t start, const char16_t* directory);

}  // namespace kk
