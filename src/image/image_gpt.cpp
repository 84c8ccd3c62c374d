#include "core/checked_math.h"
#include "core/heap_block.h"
#include "core/status.h"
#include "image/image_partitions.h"
#include "image/image_sector.h"
#include "partition/gpt_format.h"

namespace kk {

namespace {

/// Holds every array of entries of the usual size at once. Larger ones are read in turns: the size is the image's word
/// and may be gigabytes.
constexpr uint32_t kBufferBytes = kGptMostEntries * sizeof(GptEntry);

/// Where the entries of a GPT lie on the disk.
struct EntryArray {
    uint64_t offset;  // bytes
    uint32_t count;   // 0: no partitions
    uint32_t entryBytes;
};

KK_STATUS ReadHeader(VhdxReader& reader, Guid& diskGuid, EntryArray& array)
{
    HeapBlock sector;
    KK_TRY(ReadImageSector(reader, kGptHeaderLba, sector));
    const auto& header = *reinterpret_cast<const GptHeader*>(sector.Data());
    if (reader.LogicalSectorSize() < sizeof(GptHeader) || !HasGptSignature(header)) {
        return KK_STATUS_REGISTRY_CORRUPT;
    }
    CopyBytes(&diskGuid, header.diskGuid, sizeof(diskGuid));
    if (!HasSaneEntries(header)) {
        return KK_STATUS_SUCCESS;
    }
    array.offset = SaturatingMultiply(reader.LogicalSectorSize(), header.entriesLba.Get());
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

/// Reads `count` entries from entry `first` on. Of entries that do not fit into the buffer only one is asked for, and
/// only the part with the fields is read.
KK_STATUS ReadEntries(VhdxReader& reader, const EntryArray& array, uint32_t first, uint32_t count, uint8_t* buffer)
{
    const uint64_t offset = SaturatingAdd(array.offset, uint64_t{first} * array.entryBytes);
    const uint32_t bytes = array.entryBytes > kBufferBytes ? uint32_t{sizeof(GptEntry)} : count * array.entryBytes;
    return reader.Read(offset, buffer, bytes);
}

KK_STATUS AppendUsed(const uint8_t* entries, const EntryArray& array, uint32_t first, uint32_t count, uint64_t sector,
                     ImagePartitionList& list)
{
    for (uint32_t i = 0; i < count; ++i) {
        const auto& entry = *reinterpret_cast<const GptEntry*>(entries + static_cast<uint64_t>(i) * array.entryBytes);
        if (IsUsed(entry) && !list.Append(ToImagePartition(entry, first + i + 1, sector))) {
            return KK_STATUS_UNSUCCESSFUL;
        }
    }
    return KK_STATUS_SUCCESS;
}

}  // namespace

KK_STATUS ReadGptPartitions(VhdxReader& reader, Guid& diskGuid, ImagePartitionList& list)
{
    EntryArray array = {};
    KK_TRY(ReadHeader(reader, diskGuid, array));
    if (array.count == 0) {
        return KK_STATUS_SUCCESS;
    }
    const uint64_t arrayBytes = uint64_t{array.count} * array.entryBytes;
    if (arrayBytes > UINT32_MAX) {
        return KK_STATUS_UNSUCCESSFUL;
    }
    HeapBlock buffer;
    if (!buffer.Allocate(Min(arrayBytes, uint64_t{kBufferBytes}))) {
        return KK_STATUS_UNSUCCESSFUL;
    }
    const uint32_t step = Max(kBufferBytes / array.entryBytes, 1u);
    for (uint32_t first = 0; first < array.count; first += step) {
        const uint32_t count = Min(step, array.count - first);
        KK_TRY(ReadEntries(reader, array, first, count, buffer.Data()));
        KK_TRY(AppendUsed(buffer.Data(), array, first, count, reader.LogicalSectorSize(), list));
    }
    return KK_STATUS_SUCCESS;
}

}  // namespace kk
