#include "core/checked_math.h"
#include "core/status.h"
#include "disk/disk_layout.h"
#include "partition/disk_range.h"
#include "partition/disk_refresh.h"
#include "partition/gpt_format.h"
#include "partition/partition_alignment.h"
#include "partition/table_edit.h"

namespace kk {

namespace {

/// The part of a region of the disk that a partition may take: from an aligned start to the end of what is usable.
/// Empty when there is none.
DiskRange UsablePart(const DiskLayout& layout, const DiskRange& region)
{
    uint64_t end = Min(SaturatingAdd(region.start, region.length), layout.diskSize);
    if (layout.style == PartitionStyle::Gpt) {
        const uint64_t reserve = Min(GptEndReserve(layout.sectorSize), layout.diskSize);
        end = Min(end, layout.diskSize - reserve);
    }
    return AlignedRange(region.start, end);
}

/// A wanted size ends on a sector and "as much as there is" on an aligned boundary, on purpose: who names a size gets
/// it. 0 when there is no room for it.
uint64_t ChooseLength(uint64_t wanted, uint64_t available, uint32_t sectorSize)
{
    if (wanted == 0) {
        return available - available % kPartitionAlignment;
    }
    const uint64_t length = SaturatingRoundUp(wanted, sectorSize);
    return length <= available ? length : 0;
}

/// Where the partition goes, judged by the layout alone.
KK_STATUS PlacePartition(const DiskLayout& layout, const DiskRange& region, uint64_t wanted, DiskRange& place)
{
    place = UsablePart(layout, region);
    place.length = ChooseLength(wanted, place.length, layout.sectorSize);
    if (place.length == 0) {
        return KK_STATUS_BUFFER_TOO_SMALL;
    }
    return OverlapsPartition(layout, place) ? KK_STATUS_INVALID_PARAMETER : KK_STATUS_SUCCESS;
}

KK_STATUS CreatePartition(uint32_t disk, const DiskRange& region, uint64_t wanted, uint64_t& start)
{
    DiskLayout layout;
    KK_TRY(ReadPartitionedLayout(disk, layout));
    // Before the region is judged, on purpose: a disk that does not open for writing is the first thing to tell.
    DevicePtr drive;
    KK_TRY(OpenPhysicalDrive(disk, true, drive));

    DiskRange place = {};
    KK_TRY(PlacePartition(layout, region, wanted, place));
    KK_TRY(AddDataPartition(*drive, layout, place));
    RefreshDiskProperties(*drive);
    start = place.start;
    return KK_STATUS_SUCCESS;
}

}  // namespace

}  // namespace kk

KK_STATUS KK_CALL KkCreatePartition(uint32_t diskNumber, uint64_t regionStart, uint64_t regionLength, uint64_t size,
                                    uint64_t* startOffset)
{
    uint64_t start = 0;
    KK_TRY(kk::CreatePartition(diskNumber, {regionStart, regionLength}, size, start));
    if (startOffset != nullptr) {
        *startOffset = start;
    }
    return KK_STATUS_SUCCESS;
}
