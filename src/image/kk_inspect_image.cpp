#include "core/checked_math.h"
#include "core/status.h"
#include "core/text.h"
#include "image/image_partitions.h"

namespace kk {

namespace {

void FillInfo(const VhdxReader& reader, const ImageTable& table, ImageInfoRecord& info)
{
    info.virtualSize = reader.VirtualSize();
    info.logicalSectorSize = reader.LogicalSectorSize();
    info.blockSize = reader.BlockSize();
    CopyBytes(info.diskGuid, &table.diskGuid, sizeof(info.diskGuid));
    info.partitionCount = static_cast<uint32_t>(table.partitions.Count());
    info.partitionStyle = static_cast<uint32_t>(table.style);
}

void FillPartition(const ImagePartition& partition, ImagePartitionRecord& record)
{
    record.number = partition.number;
    record.offset = partition.offset;
    record.length = partition.length;
    CopyBytes(record.typeGuid, &partition.typeGuid, sizeof(record.typeGuid));
    CopyBytes(record.name, partition.name, sizeof(record.name));
}

/// All three outputs may be null, `count` is 0 so far.
KK_STATUS InspectImage(const char16_t* path, ImageInfoRecord* info, ImagePartitionRecord* partitions, uint32_t capacity,
                       uint32_t* count)
{
    VhdxReader reader;
    KK_TRY(reader.Open(path));
    ImageTable table;
    KK_TRY(ReadImageTable(reader, table));

    const auto found = static_cast<uint32_t>(table.partitions.Count());
    if (info != nullptr) {
        FillInfo(reader, table, *info);
    }
    if (count != nullptr) {
        *count = found;
    }
    for (uint32_t i = 0; partitions != nullptr && i < Min(found, capacity); ++i) {
        FillPartition(table.partitions[i], partitions[i]);
    }
    return KK_STATUS_SUCCESS;
}

}  // namespace

}  // namespace kk

KK_STATUS KK_CALL KkInspectImage(const KkWideChar* imagePath, ImageInfoRecord* info, ImagePartitionRecord* partitions,
                                 uint32_t capacity, uint32_t* count)
{
    if (count != nullptr) {
        *count = 0;
    }
    if (imagePath == nullptr) {
        return KK_STATUS_INVALID_PARAMETER;
    }
    return kk::InspectImage(kk::FromCaller(imagePath), info, partitions, capacity, count);
}
