#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "kit.h"

namespace kkctl {

/// The number of a disk that a user named by its number.
std::optional<uint32_t> DiskNumberIn(std::string_view text);

/// The path by which the library opens a disk that a user named: by its number, by the system's name of it, or by a
/// file that stands for one. Throws PathError.
WideString DiskPath(const Kit& kit, const std::string& disk);

/// The same for a volume: DISK@OFFSET, a drive letter with a colon, the system's name of it, or a file. Throws
/// ArgumentError when no partition of the disk starts there, and CallError when that cannot be learnt.
WideString VolumePath(const Kit& kit, const std::string& volume);

}  // namespace kkctl
