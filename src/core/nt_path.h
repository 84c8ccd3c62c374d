#pragma once

#include <cstddef>

namespace kk {

/// Units of the buffers that native names are built in.
inline constexpr size_t kNtPathUnits = 1024;

/// Turns a caller's path into a native object name, cut so that the terminator fits into `capacity` units:
/// `C:\dir` becomes `\??\C:\dir`, `\\.\X` and `\\?\X` become `\??\X`, and any other name that begins with a backslash
/// is native already. That includes `\\server\share`, which is not supported.
void ToNtPath(const char16_t* path, char16_t* output, size_t capacity);

}  // namespace kk
