#pragma once

#include <cstdint>

#include "kestrelkit/kestrelkit.h"

namespace kk {

/// What KkMountImageOverlay does.
[[nodiscard]] KK_STATUS MountImageOverlay(const char16_t* parentPath, const char16_t* overlayPath,
                                          uint32_t* diskNumber);

/// What KkDiscardOverlay does.
KK_STATUS DiscardOverlay(const char16_t* overlayPath);

}  // namespace kk
