#pragma once

#include <cstdint>
#include <string>

#include "kit.h"

namespace kkctl {

/// What names a partition in an image.
struct ImageSource {
    std::string image;
    uint32_t partition = 0;
};

/// "partition 3 of x.vhdx".
std::string NameOf(const ImageSource& source);

/// Asks the library what an image holds; throws CallError.
Image InspectImage(const Kit& kit, const std::string& image);

/// Looks for the partition in its image; throws ArgumentError when it is not there and CallError.
ImagePartition FindInImage(const Kit& kit, const ImageSource& source);

}  // namespace kkctl
