#include "backup/backup_plan.h"

#include "core/checked_math.h"
#include "core/number_choice.h"
#include "core/status.h"
#include "disk/mount_points.h"
#include "disk/volume_lookup.h"
#include "partition/gpt_format.h"
#include "partition/partition_alignment.h"

namespace kk {

namespace {

BackupPlanEntry PlanPartition(const BackupRequest& request, const PartitionEntry& partition)
{
    BackupPlanEntry entry = {};
    entry.partition = &partition;
    if (!FindVolumeForPartition(request.diskNumber, partition.start, entry.volumeDevice, kDevicePathUnits,
                                &entry.clusterSize)) {
        return entry;
    }
    entry.usedBlocks = request.usedBlocksOnly && entry.clusterSize != 0;
    if (request.useSnapshots != 0) {
        GetVolumeGuidPath(entry.volumeDevice, entry.snapshotVolumeName, kVolumeNameUnits);
    }
    return entry;
}

/// Insertion sort, so that partitions that start at the same place keep their order.
void SortByStart(BackupPlan& plan)
{
    for (size_t i = 1; i < plan.Count(); ++i) {
        const BackupPlanEntry entry = plan[i];
        size_t place = i;
        for (; place > 0 && plan[place - 1].partition->start > entry.partition->start; --place) {
            plan[place] = plan[place - 1];
        }
        plan[place] = entry;
    }
}

/// Packs the partitions on 1 MiB boundaries and leaves one sector and the room for a GPT's second entry array.
uint64_t PackPartitions(uint32_t sectorSize, BackupPlan& plan)
{
    uint64_t cursor = kPartitionAlignment;
    for (BackupPlanEntry& entry : plan) {
        entry.imageOffset = cursor;
        cursor = SaturatingRoundUp(SaturatingAdd(cursor, entry.partition->length), kPartitionAlignment);
    }
    if (cursor == kMaxU64) {
        return kMaxU64;
    }
    return SaturatingMultiply(cursor / sectorSize + 1 + GptEntryArraySectors(sectorSize), sectorSize);
}

}  // namespace

bool IsSelected(const BackupRequest& request, const PartitionEntry& partition)
{
    return IsChosen({request.partitionNumbers, request.partitionCount}, partition.number);
}

KK_STATUS BuildBackupPlan(const BackupRequest& request, const DiskLayout& layout, BackupPlan& plan)
{
    for (const PartitionEntry& partition : layout.partitions) {
        if (IsSelected(request, partition) && !plan.Append(PlanPartition(request, partition))) {
            return KK_STATUS_NO_MEMORY;
        }
    }
    return KK_STATUS_SUCCESS;
}

uint64_t PlacePartitions(const BackupRequest& request, uint64_t diskSize, uint32_t sectorSize, BackupPlan& plan)
{
    if (request.compact != 0) {
        SortByStart(plan);
        return PackPartitions(sectorSize, plan);
    }
    for (BackupPlanEntry& entry : plan) {
        entry.imageOffset = entry.partition->start;
    }
    return SaturatingRoundUp(diskSize, sectorSize);
}

}  // namespace kk
