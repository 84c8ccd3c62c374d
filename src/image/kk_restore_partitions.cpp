#include "backup/image_partition_table.h"
#include "core/checked_math.h"
#include "core/file_opener.h"
#include "core/heap_block.h"
#include "core/number_choice.h"
#include "core/status.h"
#include "core/text.h"
#include "core/transfer.h"
#include "image/chunk_copy.h"
#include "image/image_partitions.h"
#include "partition/gpt_format.h"

namespace kk {

namespace {

struct RestoreRequest {
    const char16_t* imagePath;
    const char16_t* targetPath;
    NumberChoice partitions;
    bool writeTable;
};

/// The chosen partitions, as the new table is made of them.
using Selection = Array<GptImageEntry>;

GptImageEntry ToTableEntry(const ImagePartition& partition)
{
    GptImageEntry entry = {};
    entry.typeGuid = partition.typeGuid;
    entry.idGuid = partition.idGuid;
    entry.offset = partition.offset;
    entry.length = partition.length;
    CopyBytes(entry.name, partition.name, sizeof(entry.name));
    return entry;
}

/// Takes an image with a GPT only, on purpose: an MBR has no GUIDs and types of which a new GPT could be made.
KK_STATUS SelectPartitions(const RestoreRequest& request, VhdxReader& image, Guid& diskGuid, Selection& selection)
{
    ImagePartitionList partitions;
    KK_TRY(ReadGptPartitions(image, diskGuid, partitions));
    for (const ImagePartition& partition : partitions) {
        if (IsChosen(request.partitions, partition.number) && !selection.Append(ToTableEntry(partition))) {
            return KK_STATUS_NO_MEMORY;
        }
    }
    return selection.Count() == 0 ? KK_STATUS_INVALID_PARAMETER : KK_STATUS_SUCCESS;
}

/// Finds the sectors of the target and tests that the selection fits, whether or not a table is to be written. A target
/// of unknown size counts as large as the image's disk and is not tested.
KK_STATUS CheckTarget(DeviceFile& target, const VhdxReader& image, const Selection& selection, uint64_t& totalSectors)
{
    const uint32_t sectorSize = image.LogicalSectorSize();
    uint64_t size = 0;
    (void)target.QuerySize(&size);
    if (size == 0) {
        totalSectors = image.VirtualSize() / sectorSize;
        return KK_STATUS_SUCCESS;
    }
    totalSectors = size / sectorSize;
    const uint64_t wholeSectors = totalSectors * sectorSize;
    const uint64_t end = wholeSectors - Min(wholeSectors, GptEndReserve(sectorSize));
    for (const GptImageEntry& partition : selection) {
        if (partition.offset > end || partition.length > end - partition.offset) {
            return KK_STATUS_BUFFER_TOO_SMALL;
        }
    }
    return KK_STATUS_SUCCESS;
}

KK_STATUS RestorePartitions(const RestoreRequest& request)
{
    VhdxReader image;
    KK_TRY(image.Open(request.imagePath));
    Guid diskGuid = {};
    Selection selection;
    KK_TRY(SelectPartitions(request, image, diskGuid, selection));

    DevicePtr target;
    KK_TRY(OpenDevice(request.targetPath, true, target));
    uint64_t totalSectors = 0;
    KK_TRY(CheckTarget(*target, image, selection, totalSectors));
    if (request.writeTable) {
        KK_TRY(WriteImageGpt(*target, image.LogicalSectorSize(), totalSectors, diskGuid, selection.begin(),
                             selection.Count()));
    }
    HeapBlock buffer;
    if (!buffer.Allocate(kTransferBytes)) {
        return KK_STATUS_NO_MEMORY;
    }
    for (const GptImageEntry& partition : selection) {
        const ImageRange range = {partition.offset, partition.length};
        KK_TRY(CopyFromImage(image, range, *target, range.offset, buffer.Data()));
    }
    (void)target->Flush();
    return KK_STATUS_SUCCESS;
}

}  // namespace

}  // namespace kk

KK_STATUS KK_CALL KkRestorePartitions(const KkWideChar* imagePath, const KkWideChar* targetPath,
                                      const uint32_t* partitionNumbers, uint32_t partitionCount,
                                      int32_t writePartitionTable)
{
    if (imagePath == nullptr || targetPath == nullptr) {
        return KK_STATUS_INVALID_PARAMETER;
    }
    return kk::RestorePartitions({.imagePath = kk::FromCaller(imagePath),
                                  .targetPath = kk::FromCaller(targetPath),
                                  .partitions = {partitionNumbers, partitionCount},
                                  .writeTable = writePartitionTable != 0});
}
