#include "image_source.h"

#include <algorithm>

#include "call_error.h"

namespace kkctl {

std::string NameOf(const ImageSource& source)
{
    return "partition " + std::to_string(source.partition) + " of " + source.image;
}

Image InspectImage(const Kit& kit, const std::string& image)
{
    const auto contents = kit.Calls().InspectImage(kit.ToLibraryPath(image));
    if (!contents) {
        throw CallError("inspecting " + image, contents.status);
    }
    return *contents;
}

ImagePartition FindInImage(const Kit& kit, const ImageSource& source)
{
    const Image contents = InspectImage(kit, source.image);
    const auto found = std::ranges::find(contents.partitions, source.partition, &ImagePartition::number);
    if (found == contents.partitions.end()) {
        throw ArgumentError(source.image + " has no partition " + std::to_string(source.partition));
    }
    return *found;
}

}  // namespace kkctl
