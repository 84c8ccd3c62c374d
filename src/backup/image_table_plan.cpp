#include "backup/image_table_plan.h"

#include "backup/image_partition_table.h"
#include "core/memory.h"

namespace kk {

namespace {

MbrImageEntry ToMbrEntry(const PartitionEntry& partition, uint64_t offset)
{
    // Never active, on purpose: an attached image must not pass for a disk to start from.
    return {.offset = offset, .length = partition.length, .type = partition.mbrType, .active = 0};
}

GptImageEntry ToGptEntry(const PartitionEntry& partition, uint64_t offset)
{
    GptImageEntry entry = {};
    entry.typeGuid = partition.typeGuid;
    entry.idGuid = partition.idGuid;
    entry.offset = offset;
    entry.length = partition.length;
    CopyBytes(entry.name, partition.name, sizeof(entry.name));
    return entry;
}

/// The table's entries: in plan order when the partitions were packed, else in layout order. One that does not fit into
/// memory is left out, on purpose: the partition's data is worth more than its entry.
template <typename Entry>
void CollectEntries(const BackupRequest& request, const DiskLayout& layout, const BackupPlan& plan,
                    Entry (*convert)(const PartitionEntry&, uint64_t), Array<Entry>& entries)
{
    if (request.compact != 0) {
        for (const BackupPlanEntry& planned : plan) {
            (void)entries.Append(convert(*planned.partition, planned.imageOffset));
        }
        return;
    }
    for (const PartitionEntry& partition : layout.partitions) {
        if (!request.removeOmitted || IsSelected(request, partition)) {
            (void)entries.Append(convert(partition, partition.start));
        }
    }
}

}  // namespace

KK_STATUS WriteImageTable(DeviceFile& target, const BackupRequest& request, const DiskLayout& layout,
                          uint32_t sectorSize, uint64_t totalSectors, const BackupPlan& plan)
{
    if (layout.style == PartitionStyle::Mbr) {
        Array<MbrImageEntry> entries;
        CollectEntries(request, layout, plan, ToMbrEntry, entries);
        return WriteImageMbr(target, sectorSize, entries.begin(), entries.Count());
    }
    Array<GptImageEntry> entries;
    CollectEntries(request, layout, plan, ToGptEntry, entries);
    return WriteImageGpt(target, sectorSize, totalSectors, layout.diskGuid, entries.begin(), entries.Count());
}

}  // namespace kk
