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
    kk::VhdxReader reader;
    KK_TRY(reader.Open(kk::FromCaller(imagePath)));
    kk::ImageTable table;
    KK_TRY(kk::ReadImageTable(reader, table));

    const auto found = static_cast<uint32_t>(table.partitions.Count());
    if (info != nullptr) {
        kk::FillInfo(reader, table, *info);
    }
    if (count != nullptr) {
        *count = found;
    }
    if (partitions != nullptr) {
        for (uint32_t i = 0; i < kk::Min(found, capacity); ++i) {
            kk::FillPartition(table.partitions[i], partitions[i]);
        }
    }
    return KK_STATUS_SUCCESS;
}
