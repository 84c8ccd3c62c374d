#include "image_contents.h"

#include <algorithm>
#include <cstddef>
#include <iterator>

#include "call_error.h"
#include "records.h"

namespace kkctl {

namespace {

ImagePartition Unpack(const ImagePartitionRecord& record)
{
    ImagePartition partition;
    partition.number = record.number;
    partition.startOffset = record.offset;
    partition.length = record.length;
    std::copy(std::begin(record.typeGuid), std::end(record.typeGuid), partition.typeGuid.begin());
    partition.name = TextAt(record, offsetof(ImagePartitionRecord, name), sizeof(ImagePartitionRecord::name));
    return partition;
}

ImageContents Unpack(const ImageInfoRecord& record)
{
    ImageContents contents;
    contents.size = record.virtualSize;
    contents.sectorSize = record.logicalSectorSize;
    contents.blockSize = record.blockSize;
    std::copy(std::begin(record.diskGuid), std::end(record.diskGuid), contents.diskGuid.begin());
    contents.partitionStyle = record.partitionStyle;
    return contents;
}

}  // namespace

ImageContents InspectImage(const Kit& kit, const std::string& image)
{
    const WideString path = kit.ToLibraryPath(image);
    ImageInfoRecord info = {};
    const auto call = [&](ImagePartitionRecord* records, uint32_t capacity, uint32_t* count) {
        return kit.Calls().inspectImage(path.c_str(), &info, records, capacity, count);
    };
    std::vector<ImagePartitionRecord> records;
    const KK_STATUS status = FetchRecords(call, records);
    if (status < 0) {
        throw CallError("inspecting " + image, status);
    }
    ImageContents contents = Unpack(info);
    for (const ImagePartitionRecord& record : records) {
        contents.partitions.push_back(Unpack(record));
    }
    return contents;
}

}  // namespace kkctl
