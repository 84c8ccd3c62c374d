#pragma once

#include <filesystem>

#include "settings.h"

namespace bench {

/// The disk as a growing VHDX file by `qemu-img`, made once.
std::filesystem::path MakeDiskImage(const Settings& settings);

}  // namespace bench
