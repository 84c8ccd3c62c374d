#pragma once

#include <cstddef>
#include <string>

#include "kit.h"

namespace kkctl {

/// Whether something is at a user's path.
bool FileExists(const std::string& path);

/// The path as the library needs it, for a call that would cut a longer one; throws PathError: "... too long for USE".
WideString LibraryPathWithin(const Kit& kit, const std::string& path, size_t maxUnits, const std::string& use);

}  // namespace kkctl
