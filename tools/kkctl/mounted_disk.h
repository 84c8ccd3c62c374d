#pragma once

#include <cstdint>
#include <string>

#include "context.h"

namespace kkctl {

/// A disk that shows an image, and what is known of it.
struct MountedDisk {
    static constexpr uint32_t kUnknown = 0xFFFFFFFF;

    std::string image;
    std::string overlay = {};  ///< the file that takes what is written to the disk; empty: the image itself
    uint32_t number = kUnknown;
};

/// Tells which disk it is.
void ReportMountedDisk(const Context& context, const MountedDisk& disk);

}  // namespace kkctl
