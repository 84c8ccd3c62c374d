#include "core/checked_math.h"
#include "core/heap_block.h"
#include "core/status.h"
#include "core/text.h"
#include "core/transfer.h"
#include "disk/disk_layout.h"
#include "image/chunk_copy.h"
#include "image/image_partitions.h"
#include "partition/disk_range.h"
#include "partition/disk_refresh.h"
#include "partition/gpt_format.h"
#include "partition/table_edit.h"
#include "partition/table_sector.h"

namespace kk {

namespace {

struct FreeSpaceRequest {
    const char16_t* imagePath;
    uint32_t partitionNumber;
    uint32_t disk;
    DiskRange region;
    bool keepSourceSize;
};

/// Cuts [start, end) to what a GPT calls usable. A header that cannot be read or is none changes nothing, on purpose:
/// adding the partition tells what is wrong with it. KK_STATUS_NO_MEMORY.
KK_STATUS CutToUsable(DeviceFile& drive, uint32_t sectorSize, uint64_t& start, uint64_t& end)
{
    HeapBlock sector;
    if (!sector.Allocate(SectorBufferBytes(sectorSize))) {
        return KK_STATUS_NO_MEMORY;
    }
    const auto& header = *reinterpret_cast<const GptHeader*>(sector.Data());
    constexpr uint32_t fieldsEnd = offsetof(GptHeader, diskGuid);
    if (sectorSize < fieldsEnd || Failed(drive.ReadAt(kGptHeaderLba * sectorSize, sector.Data(), sectorSize)) ||
        !HasGptSignature(header)) {
        return KK_STATUS_SUCCESS;
    }
    start = Max(start, SaturatingMultiply(header.firstUsableLba.Get(), sectorSize));
    end = Min(end, SaturatingMultiply(SaturatingAdd(header.lastUsableLba.Get(), 1), sectorSize));
    return KK_STATUS_SUCCESS;
}

/// Which length a partition for `length` bytes gets in the room there is; false when it does not fit.
bool ChooseLength(uint64_t length, uint64_t available, uint32_t sectorSize, bool keep, uint64_t& chosen)
{
    if (length > available) {
        return false;
    }
    chosen = keep ? SaturatingRoundUp(length, sectorSize) : available - available % sectorSize;
    return keep ? chosen <= available : chosen >= length;
}

/// Where the new partition goes, judged by the disk's layout and its GPT's header.
KK_STATUS PlacePartition(DeviceFile& drive, const DiskLayout& layout, const FreeSpaceRequest& request, uint64_t length,
                         DiskRange& place)
{
    uint64_t start = request.region.start;
    uint64_t end = Min(SaturatingAdd(start, request.region.length), layout.diskSize);
    if (layout.style == PartitionStyle::Gpt) {
        KK_TRY(CutToUsable(drive, layout.sectorSize, start, end));
    }
    place = AlignedRange(start, end);
    // A start beyond all disks has no room even for a partition without length.
    if (place.start == kMaxU64 ||
        !ChooseLength(length, place.length, layout.sectorSize, request.keepSourceSize, place.length)) {
        return KK_STATUS_BUFFER_TOO_SMALL;
    }
    return OverlapsPartition(layout, place) ? KK_STATUS_INVALID_PARAMETER : KK_STATUS_SUCCESS;
}

KK_STATUS RestoreToFreeSpace(const FreeSpaceRequest& request)
{
    VhdxReader image;
    ImagePartition source = {};
    KK_TRY(OpenImagePartition(request.imagePath, request.partitionNumber, image, source));
    DiskLayout layout;
    KK_TRY(ReadPartitionedLayout(request.disk, layout));
    DevicePtr drive;
    KK_TRY(OpenPhysicalDrive(request.disk, true, drive));
    DiskRange place = {};
    KK_TRY(PlacePartition(*drive, layout, request, source.length, place));
    KK_TRY(AddDataPartition(*drive, layout, place));

    // The system learns of the partition when it is filled and not before, on purpose: until then there is no volume
    // that could be mounted half-written. A failure leaves the entry in the table.
    HeapBlock buffer;
    if (!buffer.Allocate(kTransferBytes)) {
        return KK_STATUS_NO_MEMORY;
    }
    KK_TRY(CopyFromImage(image, {source.offset, source.length}, *drive, place.start, buffer.Data()));
    (void)drive->Flush();
    RefreshDiskProperties(*drive);
    return KK_STATUS_SUCCESS;
}

}  // namespace

}  // namespace kk

KK_STATUS KK_CALL KkRestoreToFreeSpace(const KkWideChar* imagePath, uint32_t partitionNumber, uint32_t targetDiskNumber,
                                       uint64_t regionStart, uint64_t regionLength, int32_t keepSourceSize)
{
    if (imagePath == nullptr) {
        return KK_STATUS_INVALID_PARAMETER;
    }
    return kk::RestoreToFreeSpace({.imagePath = kk::FromCaller(imagePath),
                                   .partitionNumber = partitionNumber,
                                   .disk = targetDiskNumber,
                                   .region = {regionStart, regionLength},
                                   .keepSourceSize = keepSourceSize != 0});
}
