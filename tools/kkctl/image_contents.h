#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "kit.h"
#include "partition_types.h"

namespace kkctl {

/// An `ImagePartitionRecord` without packing, its text as UTF-8.
struct ImagePartition {
    uint32_t number = 0;
    uint64_t startOffset = 0;
    uint64_t length = 0;
    GuidBytes typeGuid = {};
    std::string name;  ///< on an MBR disk a label made of the type
};

/// An `ImageInfoRecord` without packing, and the partitions.
struct ImageContents {
    uint64_t size = 0;
    uint32_t sectorSize = 0;
    uint32_t blockSize = 0;
    GuidBytes diskGuid = {};
    uint32_t partitionStyle = KK_PARTITION_STYLE_RAW;
    std::vector<ImagePartition> partitions;
};

/// Asks the library what an image holds; throws CallError.
ImageContents InspectImage(const Kit& kit, const std::string& image);

}  // namespace kkctl
