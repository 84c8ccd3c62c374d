#include "core/checked_math.h"
#include "core/status.h"
#include "disk/disk_controls.h"
#include "disk/disk_layout.h"
#include "disk/volume_controls.h"
#include "disk/volume_lookup.h"
#include "partition/disk_refresh.h"
#include "partition/gpt_format.h"

namespace kk {

namespace {

/// Bytes from the partition's start to the next partition or to the end of what is usable; its present length when that
/// end does not lie behind its start.
uint64_t RoomOf(const DiskLayout& layout, const PartitionEntry& partition)
{
    uint64_t limit = layout.diskSize;
    const uint64_t reserve = GptEndReserve(layout.sectorSize);
    // A disk that is all reserve, or does not tell its size, loses nothing; its partitions find no room anyway.
    if (layout.style == PartitionStyle::Gpt && limit > reserve) {
        limit -= reserve;
    }
    for (const PartitionEntry& other : layout.partitions) {
        if (other.start > partition.start) {
            limit = Min(limit, other.start);
        }
    }
    return limit > partition.start ? limit - partition.start : partition.length;
}

/// `wanted` 0 asks for all the room there is.
KK_STATUS ChooseLength(const DiskLayout& layout, const PartitionEntry& partition, uint64_t wanted, uint64_t& length)
{
    const uint64_t room = RoomOf(layout, partition);
    length = wanted == 0 ? room - room % layout.sectorSize : SaturatingRoundUp(wanted, layout.sectorSize);
    if (length <= partition.length) {
        return KK_STATUS_INVALID_PARAMETER;
    }
    return length > room ? KK_STATUS_BUFFER_TOO_SMALL : KK_STATUS_SUCCESS;
}

/// Through the driver, on purpose: it keeps table and live volume in step, and a volume can only ever gain by that.
KK_STATUS GrowPartition(DeviceFile& drive, uint32_t number, uint64_t difference)
{
    const DiskGrowPartition request = {
        .partitionNumber = number, .padding = 0, .bytesToGrow = static_cast<int64_t>(difference)};
    return drive.Control(kIoctlDiskGrowPartition, &request, sizeof(request), nullptr, 0, nullptr);
}

/// Best effort, on purpose: the partition has grown, and that is what the call reports.
void ExtendFileSystem(uint32_t disk, uint64_t start, uint64_t sectors)
{
    DevicePtr volume;
    if (!OpenVolumeForPartition(disk, start, volume)) {
        return;
    }
    const auto total = static_cast<int64_t>(sectors);
    (void)volume->Control(kFsctlExtendVolume, &total, sizeof(total), nullptr, 0, nullptr);
}

KK_STATUS ExtendPartition(uint32_t disk, uint64_t start, uint64_t wanted)
{
    DiskLayout layout;
    KK_TRY(ReadPartitionedLayout(disk, layout));
    const PartitionEntry* const partition = FindPartition(layout, start);
    if (partition == nullptr) {
        return KK_STATUS_INVALID_PARAMETER;
    }
    DevicePtr drive;
    KK_TRY(OpenPhysicalDrive(disk, true, drive));
    uint64_t length = 0;
    KK_TRY(ChooseLength(layout, *partition, wanted, length));
    KK_TRY(GrowPartition(*drive, partition->number, length - partition->length));
    RefreshDiskProperties(*drive);
    drive.Reset();

    ExtendFileSystem(disk, start, length / layout.sectorSize);
    return KK_STATUS_SUCCESS;
}

}  // namespace

}  // namespace kk

KK_STATUS KK_CALL KkExtendPartition(uint32_t diskNumber, uint64_t startOffset, uint64_t newSize)
{
    return kk::ExtendPartition(diskNumber, startOffset, newSize);
}
