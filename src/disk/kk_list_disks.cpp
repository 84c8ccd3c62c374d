#include "core/status.h"
#include "disk/disk_layout.h"
#include "kestrelkit/kestrelkit.h"

namespace kk {

namespace {

// Numbers with gaps have no end that could be seen, so a bound is set.
constexpr uint32_t kDiskNumbers = 32;

/// Leaves the record's unused bytes as the caller had them.
void FillRecord(uint32_t disk, const DiskLayout& layout, KkDiskInfo& record)
{
    record.number = disk;
    record.size = layout.diskSize;
    record.sectorSize = layout.sectorSize;
    record.partitionStyle = static_cast<uint32_t>(layout.style);
    record.partitionCount = static_cast<uint32_t>(layout.partitions.Count());
}

uint32_t ListDisks(KkDiskInfo* records, uint32_t capacity)
{
    uint32_t found = 0;
    for (uint32_t disk = 0; disk < kDiskNumbers; ++disk) {
        DiskLayout layout;
        if (Failed(ReadDiskLayout(disk, layout)) || layout.diskSize == 0) {
            continue;
        }
        if (records != nullptr && found < capacity) {
            FillRecord(disk, layout, records[found]);
        }
        ++found;
    }
    return found;
}

}  // namespace

}  // namespace kk

KK_STATUS KK_CALL KkListDisks(KkDiskInfo* records, uint32_t capacity, uint32_t* count)
{
    const uint32_t found = kk::ListDisks(records, capacity);
    if (count != nullptr) {
        *count = found;
    }
    return KK_STATUS_SUCCESS;
}
