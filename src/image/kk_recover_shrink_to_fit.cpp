#include "core/checked_math.h"
#include "core/heap_block.h"
#include "core/status.h"
#include "core/text.h"
#include "disk/disk_layout.h"
#include "disk/volume_lookup.h"
#include "image/overlay.h"
#include "image/volume_clone.h"

namespace kk {

namespace {

/// Partitions of the image and of the disk that are looked at.
constexpr uint32_t kSearchedPartitions = 64;

struct RecoveryRequest {
    const KkWideChar* imagePath;
    uint32_t partitionNumber;
    uint32_t targetDisk;
    uint64_t targetOffset;
};

/// The two partitions of a recovery.
struct RecoveryPlan {
    uint64_t sourceOffset = 0;
    uint64_t sourceLength = 0;
    uint64_t targetLength = 0;
};

/// Of several partitions with the number the last one counts. All failures to look are one, on purpose: what is wrong
/// with an image or a disk is for KkInspectImage and KkListPartitions to tell.
KK_STATUS FindSource(const RecoveryRequest& request, ImagePartitionRecord* records, RecoveryPlan& plan)
{
    ImageInfoRecord info = {};
    uint32_t count = 0;
    if (KkInspectImage(request.imagePath, &info, nullptr, 0, &count) != KK_STATUS_SUCCESS) {
        return KK_STATUS_UNSUCCESSFUL;
    }
    const uint32_t capacity = Min(count, kSearchedPartitions);
    if (KkInspectImage(request.imagePath, &info, records, capacity, &count) != KK_STATUS_SUCCESS) {
        return KK_STATUS_UNSUCCESSFUL;
    }
    bool found = false;
    for (uint32_t i = 0; i < Min(count, capacity); ++i) {
        if (records[i].number == request.partitionNumber) {
            plan.sourceOffset = records[i].offset;
            plan.sourceLength = records[i].length;
            found = true;
        }
    }
    return found ? KK_STATUS_SUCCESS : KK_STATUS_INVALID_PARAMETER;
}

KK_STATUS FindTarget(const RecoveryRequest& request, KkPartitionInfo* records, RecoveryPlan& plan)
{
    uint32_t count = 0;
    if (KkListPartitions(request.targetDisk, records, kSearchedPartitions, &count) != KK_STATUS_SUCCESS) {
        return KK_STATUS_UNSUCCESSFUL;
    }
    bool found = false;
    for (uint32_t i = 0; i < Min(count, kSearchedPartitions); ++i) {
        if (records[i].startOffset == request.targetOffset) {
            plan.targetLength = records[i].length;
            found = true;
        }
    }
    return found ? KK_STATUS_SUCCESS : KK_STATUS_INVALID_PARAMETER;
}

/// Both tables are taken before anything is looked at, and given back before the overlay is mounted.
KK_STATUS PlanRecovery(const RecoveryRequest& request, RecoveryPlan& plan)
{
    HeapBlock sources;
    HeapBlock targets;
    if (!sources.Allocate(kSearchedPartitions * sizeof(ImagePartitionRecord)) ||
        !targets.Allocate(kSearchedPartitions * sizeof(KkPartitionInfo))) {
        return KK_STATUS_NO_MEMORY;
    }
    KK_TRY(FindSource(request, reinterpret_cast<ImagePartitionRecord*>(sources.Data()), plan));
    return FindTarget(request, reinterpret_cast<KkPartitionInfo*>(targets.Data()), plan);
}

/// A large target is aimed at with something to spare, so that rounding never makes the copy too large; a small one has
/// none to spare.
uint64_t ShrunkLength(uint64_t targetLength)
{
    constexpr uint64_t largestTightTarget = 0x8000000;
    constexpr uint64_t spare = 0x4000000;
    return targetLength <= largestTightTarget ? targetLength : targetLength - spare;
}

/// Shrinks the partition on the overlay's disk if it must be, and clones it.
KK_STATUS ShrinkAndClone(const RecoveryRequest& request, const RecoveryPlan& plan, uint32_t overlayDisk)
{
    if (plan.sourceLength > plan.targetLength) {
        KK_TRY(KkShrinkPartition(overlayDisk, plan.sourceOffset, ShrunkLength(plan.targetLength)));
    }
    char16_t source[kDevicePathUnits];
    char16_t target[kDevicePathUnits];
    if (!FindVolumeForPartition(overlayDisk, plan.sourceOffset, source, kDevicePathUnits, nullptr) ||
        !FindVolumeForPartition(request.targetDisk, request.targetOffset, target, kDevicePathUnits, nullptr)) {
        return KK_STATUS_NO_MEDIA_IN_DEVICE;
    }
    return CloneVolume(source, target, true);
}

constexpr size_t kOverlayPathUnits = 600;
constexpr size_t kImagePathUnits = 580;

/// Writes the overlay's path, which lies beside the image.
void FormatOverlayPath(const char16_t* imagePath, char16_t* path, size_t capacity)
{
    CopyText(path, kImagePathUnits + 1, imagePath);
    size_t position = TextLength(path);
    AppendText(path, capacity, position, u".rec.avhdx");
}

KK_STATUS RecoverShrinkToFit(const RecoveryRequest& request)
{
    RecoveryPlan plan;
    KK_TRY(PlanRecovery(request, plan));

    const char16_t* const imagePath = FromCaller(request.imagePath);
    char16_t overlayPath[kOverlayPathUnits];
    FormatOverlayPath(imagePath, overlayPath, kOverlayPathUnits);
    // A disk number that is not told stays one that no disk has.
    uint32_t overlayDisk = 0xFFFFFFFF;
    KK_STATUS status = MountImageOverlay(imagePath, overlayPath, &overlayDisk);
    if (!Failed(status)) {
        status = ShrinkAndClone(request, plan, overlayDisk);
    }
    // Also when mounting failed: that may have left the file, and one from an earlier run goes too.
    (void)DiscardOverlay(overlayPath);
    return status;
}

}  // namespace

}  // namespace kk

KK_STATUS KK_CALL KkRecoverShrinkToFit(const KkWideChar* imagePath, int32_t partitionNumber, uint32_t targetDiskNumber,
                                       uint64_t targetPartitionOffset)
{
    // Without a path the first inspection fails, which is what callers are told.
    return kk::RecoverShrinkToFit({.imagePath = imagePath,
                                   .partitionNumber = static_cast<uint32_t>(partitionNumber),
                                   .targetDisk = targetDiskNumber,
                                   .targetOffset = targetPartitionOffset});
}
