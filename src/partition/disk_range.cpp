#include "partition/disk_range.h"

#include "core/checked_math.h"
#include "partition/partition_alignment.h"

namespace kk {

DiskRange AlignedRange(uint64_t start, uint64_t end)
{
    const uint64_t aligned = Max(SaturatingRoundUp(start, kPartitionAlignment), kPartitionAlignment);
    return {aligned, end > aligned ? end - aligned : 0};
}

bool OverlapsPartition(const DiskLayout& layout, const DiskRange& range)
{
    const uint64_t end = range.start + range.length;
    for (const PartitionEntry& partition : layout.partitions) {
        if (partition.start < end && SaturatingAdd(partition.start, partition.length) > range.start) {
            return true;
        }
    }
    return false;
}

}  // namespace kk
