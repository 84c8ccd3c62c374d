#include "backup/partition_copier.h"

#include "backup/used_extents.h"
#include "core/checked_math.h"
#include "core/file_opener.h"
#include "core/status.h"

namespace kk {

KK_STATUS PartitionCopier::Copy(const BackupPlanEntry& entry)
{
    const char16_t* path = nullptr;
    if (snapshots_ != nullptr && entry.snapshotVolumeName[0] != 0) {
        path = FindSnapshotDevice(*snapshots_, entry.snapshotVolumeName);
    }
    const bool snapshot = path != nullptr;
    if (path == nullptr && entry.volumeDevice[0] != 0) {
        path = entry.volumeDevice;
    }

    bool copied = false;
    if (path != nullptr) {
        KK_TRY(CopyFromVolume(entry, path, snapshot, copied));
    }
    // Straight from here to the disk, on purpose: neither is a snapshot that fails replaced by the live volume, nor the
    // clusters in use by the whole volume. The disk is the one source that needs nothing of the volume that failed.
    if (!copied) {
        KK_TRY(CopyRaw(entry));
    }
    ++result_.partitionsCopied;
    return KK_STATUS_SUCCESS;
}

KK_STATUS PartitionCopier::CopyFromVolume(const BackupPlanEntry& entry, const char16_t* path, bool snapshot,
                                          bool& copied)
{
    DevicePtr volume;
    if (Failed(OpenDevice(path, false, volume))) {
        return KK_STATUS_SUCCESS;
    }
    if (entry.usedBlocks) {
        KK_TRY(CopyUsedBlocks(entry, path, *volume, copied));
        if (copied) {
            ++(snapshot ? result_.snapshotUsedBlockCopies : result_.liveUsedBlockCopies);
        }
        return KK_STATUS_SUCCESS;
    }
    KK_TRY(CopyWhole(entry, *volume));
    ++(snapshot ? result_.snapshotWholeCopies : result_.liveWholeCopies);
    copied = true;
    return KK_STATUS_SUCCESS;
}

KK_STATUS PartitionCopier::CopyUsedBlocks(const BackupPlanEntry& entry, const char16_t* path, DeviceFile& volume,
                                          bool& copied)
{
    Array<VolumeExtent> extents;
    if (Failed(GetVolumeUsedExtents(path, entry.clusterSize, extents))) {
        return KK_STATUS_SUCCESS;
    }
    const uint64_t partitionLength = entry.partition->length;
    for (const VolumeExtent& extent : extents) {
        const uint64_t room = extent.offset < partitionLength ? partitionLength - extent.offset : 0;
        const uint64_t length = Min(extent.length, room);
        KK_TRY(CopyRange(volume, extent.offset, SaturatingAdd(entry.imageOffset, extent.offset), length));
    }
    copied = true;
    return KK_STATUS_SUCCESS;
}

KK_STATUS PartitionCopier::CopyWhole(const BackupPlanEntry& entry, DeviceFile& volume)
{
    uint64_t size = 0;
    (void)volume.QuerySize(&size);
    if (size == 0 || size > entry.partition->length) {
        size = entry.partition->length;
    }
    return CopyRange(volume, 0, entry.imageOffset, size);
}

KK_STATUS PartitionCopier::CopyRaw(const BackupPlanEntry& entry)
{
    KK_TRY(CopyRange(disk_, entry.partition->start, entry.imageOffset, entry.partition->length));
    ++result_.rawDiskCopies;
    return KK_STATUS_SUCCESS;
}

KK_STATUS PartitionCopier::CopyRange(DeviceFile& source, uint64_t from, uint64_t to, uint64_t length)
{
    for (uint64_t done = 0; done < length;) {
        const auto bytes = static_cast<uint32_t>(Min(length - done, uint64_t{kTransferBytes}));
        KK_TRY(source.ReadAt(SaturatingAdd(from, done), buffer_, bytes));
        KK_TRY(target_.WriteAt(SaturatingAdd(to, done), buffer_, bytes));
        done += bytes;
    }
    result_.bytesCopied += length;
    return KK_STATUS_SUCCESS;
}

}  // namespace kk
