#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "context.h"

namespace kkctl {

/// A disk that shows an image, and what is known of it.
struct MountedDisk {
    std::string image;
    std::string overlay = {};  ///< the file that takes what is written to the disk; empty: the image itself
    std::optional<uint32_t> number = std::nullopt;
};

/// Tells which disk it is.
void ReportMountedDisk(const Context& context, const MountedDisk& disk);

}  // namespace kkctl
