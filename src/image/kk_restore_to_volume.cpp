#include "core/file_opener.h"
#include "core/heap_block.h"
#include "core/status.h"
#include "core/text.h"
#include "core/transfer.h"
#include "disk/volume_requests.h"
#include "image/chunk_copy.h"
#include "image/image_partitions.h"

namespace kk {

namespace {

/// Overwrites an open volume. It is left locked after a failing copy, until it is closed.
KK_STATUS FillVolume(VhdxReader& image, const ImagePartition& source, DeviceFile& volume)
{
    LockAndDismountVolume(volume);
    uint64_t size = 0;
    (void)volume.QuerySize(&size);
    if (size != 0 && source.length > size) {
        UnlockVolume(volume);
        return KK_STATUS_BUFFER_TOO_SMALL;
    }
    HeapBlock buffer;
    if (!buffer.Allocate(kTransferBytes)) {
        return KK_STATUS_NO_MEMORY;
    }
    KK_TRY(CopyFromImage(image, {source.offset, source.length}, volume, 0, buffer.Data()));
    (void)volume.Flush();
    UnlockVolume(volume);
    return KK_STATUS_SUCCESS;
}

KK_STATUS RestoreToVolume(const char16_t* imagePath, uint32_t partitionNumber, const char16_t* volumePath,
                          bool extendFileSystem)
{
    VhdxReader image;
    ImagePartition source = {};
    KK_TRY(OpenImagePartition(imagePath, partitionNumber, image, source));
    DevicePtr volume;
    KK_TRY(OpenDevice(volumePath, true, volume));
    KK_TRY(FillVolume(image, source, *volume));
    volume.Reset();
    if (extendFileSystem) {
        ExtendFileSystemToVolume(volumePath);
    }
    return KK_STATUS_SUCCESS;
}

}  // namespace

}  // namespace kk

KK_STATUS KK_CALL KkRestoreToVolume(const KkWideChar* imagePath, uint32_t partitionNumber, const KkWideChar* volumePath,
                                    uint32_t extendFileSystem)
{
    if (imagePath == nullptr || volumePath == nullptr) {
        return KK_STATUS_INVALID_PARAMETER;
    }
    return kk::RestoreToVolume(kk::FromCaller(imagePath), partitionNumber, kk::FromCaller(volumePath),
                               extendFileSystem != 0);
}
