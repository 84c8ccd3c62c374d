#include "backup/backup_engine.h"

#include "backup/backup_manifest.h"
#include "backup/image_table_plan.h"
#include "backup/partition_copier.h"
#include "backup/snapshot_api.h"
#include "backup/snapshot_set.h"
#include "core/file_opener.h"
#include "core/heap_block.h"
#include "core/status.h"
#include "core/transfer.h"
#include "image/virtual_disk_api.h"
#include "image/virtual_disk_file.h"

namespace kk {

namespace {

constexpr uint32_t kImageBlockSize = 0x200000;

/// True when a live snapshot set was taken. Trouble here only means that live volumes are read.
bool TakeSnapshots(const BackupPlan& plan, SnapshotSet& set)
{
    if (!SnapshotServiceAvailable()) {
        return false;
    }
    const char16_t* names[kMaxSnapshots] = {};
    uint32_t count = 0;
    for (const BackupPlanEntry& entry : plan) {
        if (entry.snapshotVolumeName[0] != 0 && count < kMaxSnapshots) {
            names[count++] = entry.snapshotVolumeName;
        }
    }
    return count > 0 && !Failed(CreateSnapshots(set, names, count)) && set.components != nullptr;
}

/// What the steps of a backup share once the plan stands.
struct Backup {
    const BackupRequest& request;
    const DiskLayout& layout;
    uint32_t sectorSize;
    uint64_t virtualSize;
    const BackupPlan& plan;
    bool snapshotsUsed;
    const SnapshotSet& snapshots;
};

/// Fills the attached image. Both devices are closed again before this returns.
KK_STATUS FillImage(const Backup& backup, const VirtualDiskFile& image, HeapBlock& buffer, BackupResult& result)
{
    DevicePtr target;
    KK_TRY(OpenDevice(image.PhysicalPath(), true, target));
    DevicePtr disk;
    KK_TRY(OpenPhysicalDrive(backup.request.diskNumber, false, disk));

    KK_TRY(WriteImageTable(*target, backup.request, backup.layout, backup.sectorSize,
                           backup.virtualSize / backup.sectorSize, backup.plan));
    if (!buffer.Allocate(kTransferBytes)) {
        return KK_STATUS_NO_MEMORY;
    }
    const SnapshotSet* const snapshots = backup.snapshotsUsed ? &backup.snapshots : nullptr;
    PartitionCopier copier(*disk, *target, snapshots, buffer.Data(), result);
    for (const BackupPlanEntry& entry : backup.plan) {
        KK_TRY(copier.Copy(entry));
    }
    (void)target->Flush();
    return KK_STATUS_SUCCESS;
}

KK_STATUS WriteImage(const Backup& backup, BackupResult* result)
{
    VirtualDiskFile image;
    KK_TRY(image.Create(backup.request.imagePath, backup.virtualSize, backup.sectorSize, kImageBlockSize));
    KK_TRY(image.Attach());

    HeapBlock buffer;
    BackupResult statistics = {};
    statistics.snapshotsRequested = backup.request.useSnapshots;
    statistics.snapshotsUsed = backup.snapshotsUsed ? 1 : 0;
    KK_TRY(FillImage(backup, image, buffer, statistics));

    // All data is in the image: a failing detachment still gets its statistics and its manifest, on purpose.
    const KK_STATUS detached = image.Detach();
    if (result != nullptr) {
        *result = statistics;
    }
    WriteBackupManifest(backup.request, backup.layout, backup.snapshotsUsed, backup.virtualSize, backup.plan);
    return detached;
}

}  // namespace

KK_STATUS RunBackup(const BackupRequest& request, BackupResult* result)
{
    DiskLayout layout;
    KK_TRY(ReadPartitionedLayout(request.diskNumber, layout));
    const uint32_t sectorSize = layout.sectorSize;
    if (!BindVirtdiskCreate()) {
        return KK_STATUS_NOT_FOUND;
    }
    BackupPlan plan;
    KK_TRY(BuildBackupPlan(request, layout, plan));
    const uint64_t virtualSize = PlacePartitions(request, layout.diskSize, sectorSize, plan);

    // Declared before the image, so that the snapshots outlive it.
    SnapshotSet snapshots;
    const bool snapshotsUsed = request.useSnapshots != 0 && TakeSnapshots(plan, snapshots);
    const Backup backup = {request, layout, sectorSize, virtualSize, plan, snapshotsUsed, snapshots};
    return WriteImage(backup, result);
}

}  // namespace kk
