#include "image/image_partitions.h"

#include "core/status.h"

namespace kk {

KK_STATUS ReadImageTable(VhdxReader& reader, ImageTable& table)
{
    table.style = PartitionStyle::Gpt;
    const KK_STATUS gptStatus = ReadGptPartitions(reader, table.diskGuid, table.partitions);
    if (!Failed(gptStatus)) {
        return KK_STATUS_SUCCESS;
    }
    table.style = PartitionStyle::Mbr;
    table.diskGuid = {};
    table.partitions.Clear();
    return Failed(ReadMbrPartitions(reader, table.partitions)) ? gptStatus : KK_STATUS_SUCCESS;
}

KK_STATUS OpenImagePartition(const char16_t* path, uint32_t number, VhdxReader& reader, ImagePartition& partition)
{
    KK_TRY(reader.Open(path));
    ImageTable table;
    KK_TRY(ReadImageTable(reader, table));
    bool found = false;
    for (const ImagePartition& candidate : table.partitions) {
        if (candidate.number == number) {
            partition = candidate;
            found = true;
        }
    }
    return found ? KK_STATUS_SUCCESS : KK_STATUS_INVALID_PARAMETER;
}

}  // namespace kk
