#pragma once

#include "kestrelkit/kestrelkit.h"

namespace kk {

/// What KkCloneVolume does; both paths are given.
[[nodiscard]] KK_STATUS CloneVolume(const char16_t* sourcePath, const char16_t* targetPath, bool extendFileSystem);

}  // namespace kk
