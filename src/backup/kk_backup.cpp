#include "backup/backup_engine.h"
#include "core/text.h"

KK_STATUS KK_CALL KkBackup(uint32_t diskNumber, const KkWideChar* imagePath, const uint32_t* partitionNumbers,
                           uint32_t partitionCount, uint32_t usedBlocksOnly, uint32_t omitRemove, uint32_t useSnapshots,
                           const char* backupSetId, uint32_t setDiskIndex, uint32_t setDiskCount, uint32_t compact,
                           BackupResult* result)
{
    if (imagePath == nullptr || (partitionNumbers == nullptr && partitionCount > 0)) {
        return KK_STATUS_INVALID_PARAMETER;
    }
    const kk::BackupRequest request = {
        .diskNumber = diskNumber,
        .imagePath = kk::FromCaller(imagePath),
        .partitionNumbers = partitionNumbers,
        .partitionCount = partitionCount,
        .usedBlocksOnly = usedBlocksOnly != 0,
        // Packing leaves no place for partitions that were not chosen.
        .removeOmitted = omitRemove != 0 || compact != 0,
        .useSnapshots = useSnapshots,
        .backupSetId = backupSetId,
        .setDiskIndex = setDiskIndex,
        .setDiskCount = setDiskCount,
        .compact = compact,
    };
    return kk::RunBackup(request, result);
}
