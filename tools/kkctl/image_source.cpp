#include "image_source.h"

#include <algorithm>

namespace kkctl {

std::string NameOf(const ImageSource& source)
{
    return "partition " + std::to_string(source.partition) + " of " + source.image;
}

ImagePartition FindInImage(const Kit& kit, const ImageSource& source)
{
    const ImageContents contents = InspectImage(kit, source.image);
    const auto found = std::ranges::find(contents.partitions, source.partition, &ImagePartition::number);
    if (found == contents.partitions.end()) {
        throw ArgumentError(source.image + " has no partition " + std::to_string(source.partition));
    }
    return *found;
}

}  // namespace kkctl
