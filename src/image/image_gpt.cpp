#include "core/checked_math.h"
#include "core/status.h"
#include "image/image_partitions.h"
#include "image/image_structure.h"
#include "partition/gpt_format.h"

namespace kk {

namespace {

constexpr uint32_t kMostEntries = 4096;

/// Where the entries of a GPT lie on the disk.
struct EntryArray {
    uint64_t offset;  // bytes
    uint32_t count;
    uint32_t entryBytes;
};

KK_STATUS ReadHeader(VhdxReader& reader, Guid& diskGuid, EntryArray& array)
{
    const uint32_t sector = reader.LogicalSectorSize();
    HeapBlock block;
    uint64_t bytes = 0;
    KK_TRY(ReadImageStructure(reader, sector * kGptHeaderLba, sector, sizeof(GptHeader), block, bytes));
    const auto& header = *reinterpret_cast<const GptHeader*>(block.Data());
    if (sector < sizeof(GptHeader) || !HasGptSignature(header)) {
        return KK_STATUS_REGISTRY_CORRUPT;
    }
    CopyBytes(&diskGuid, header.diskGuid, sizeof(diskGuid));
    array.offset = SaturatingMultiply(sector, header.entriesLba.Get());
    array.count = header.entryCount.Get();
    array.entryBytes = header.entrySize.Get();
    return KK_STATUS_SUCCESS;
}

/// Offset and length wrap around when the table says what no disk can have, on purpose: they are reported as a plain
/// reading of the table gives them, and who acts on them checks them.
ImagePartition ToImagePartition(const GptEntry& entry, uint32_t number, uint64_t sector)
{
    ImagePartition partition = {};
    partition.number = number;
    CopyBytes(&partition.typeGuid, entry.typeGuid, sizeof(partition.typeGuid));
    CopyBytes(&partition.idGuid, entry.idGuid, sizeof(partition.idGuid));
    partition.offset = sector * entry.firstLba.Get();
    partition.length = sector * (entry.lastLba.Get() - entry.firstLba.Get() + 1);
    CopyBytes(partition.name, entry.name, sizeof(partition.name));
    return partition;
}

}  // namespace

KK_STATUS ReadGptPartitions(VhdxReader& reader, Guid& diskGuid, ImagePartitionList& list)
{
    EntryArray array = {};
    KK_TRY(ReadHeader(reader, diskGuid, array));
    if (array.count == 0 || array.count > kMostEntries || array.entryBytes < sizeof(GptEntry)) {
        return KK_STATUS_SUCCESS;
    }
    const uint64_t arrayBytes = uint64_t{array.count} * array.entryBytes;
    if (arrayBytes > UINT32_MAX) {
        return KK_STATUS_UNSUCCESSFUL;
    }
    HeapBlock block;
    uint64_t bytes = 0;
    KK_TRY(ReadImageStructure(reader, array.offset, static_cast<uint32_t>(arrayBytes), array.entryBytes, block, bytes));
    const auto present = static_cast<uint32_t>(bytes / array.entryBytes);
    for (uint32_t i = 0; i < present; ++i) {
        const auto& entry = *reinterpret_cast<const GptEntry*>(block.Data() + uint64_t{i} * array.entryBytes);
        if (IsUsed(entry) && !list.Append(ToImagePartition(entry, i + 1, reader.LogicalSectorSize()))) {
            return KK_STATUS_UNSUCCESSFUL;
        }
    }
    return KK_STATUS_SUCCESS;
}

}  // namespace kk
