#include "image/volume_clone.h"

#include "core/checked_math.h"
#include "core/file_opener.h"
#include "core/heap_block.h"
#include "core/status.h"
#include "core/transfer.h"
#include "disk/disk_layout.h"
#include "disk/volume_controls.h"
#include "disk/volume_requests.h"

namespace kk {

namespace {

/// Bytes of a volume that are worth a copy: those that NTFS spans, else all; 0 when that cannot be learnt.
uint64_t LengthToCopy(DeviceFile& source)
{
    NtfsExtendedVolumeData ntfs = {};
    if (!Failed(source.Control(kFsctlGetNtfsVolumeData, nullptr, 0, &ntfs, sizeof(ntfs), nullptr)) &&
        ntfs.data.numberSectors != 0) {
        return SaturatingMultiply(static_cast<uint64_t>(ntfs.data.numberSectors),
                                  SectorSizeOrDefault(ntfs.data.bytesPerSector));
    }
    uint64_t size = 0;
    (void)source.QuerySize(&size);
    return size;
}

/// Reads up to `length` bytes and tells how many could be read from the front. After a failure it goes in steps of 512
/// bytes, on purpose whatever the sector size: the smallest there is. Where sectors are larger such reads are refused,
/// and nothing of the chunk is got.
uint32_t ReadWhatCanBeRead(DeviceFile& source, uint64_t offset, uint8_t* buffer, uint32_t length)
{
    if (!Failed(source.ReadAt(offset, buffer, length))) {
        return length;
    }
    constexpr uint32_t piece = 512;
    uint32_t got = 0;
    while (length - got >= piece && !Failed(source.ReadAt(SaturatingAdd(offset, got), buffer + got, piece))) {
        got += piece;
    }
    return got;
}

/// A place that cannot be read ends the copy without a failure, on purpose: what lies before it is worth having.
KK_STATUS CopyVolume(DeviceFile& source, DeviceFile& target, uint64_t length)
{
    HeapBlock buffer;
    if (!buffer.Allocate(kTransferBytes)) {
        return KK_STATUS_NO_MEMORY;
    }
    for (uint64_t done = 0; done < length;) {
        const auto bytes = static_cast<uint32_t>(Min(length - done, uint64_t{kTransferBytes}));
        const uint32_t got = ReadWhatCanBeRead(source, done, buffer.Data(), bytes);
        KK_TRY(WriteUnlessZero(target, done, buffer.Data(), got));
        if (got < bytes) {
            break;
        }
        done += got;
    }
    (void)target.Flush();
    return KK_STATUS_SUCCESS;
}

/// The target is left locked after a failing copy, until it is closed.
KK_STATUS FillTarget(DeviceFile& source, uint64_t length, DeviceFile& target)
{
    uint64_t size = 0;
    (void)target.QuerySize(&size);
    if (size != 0 && size < length) {
        return KK_STATUS_BUFFER_TOO_SMALL;
    }
    LockAndDismountVolume(target);
    KK_TRY(CopyVolume(source, target, length));
    UnlockVolume(target);
    return KK_STATUS_SUCCESS;
}

}  // namespace

KK_STATUS CloneVolume(const char16_t* sourcePath, const char16_t* targetPath, bool extendFileSystem)
{
    DevicePtr source;
    KK_TRY(OpenDevice(sourcePath, false, source));
    const uint64_t length = LengthToCopy(*source);
    if (length == 0) {
        return KK_STATUS_UNSUCCESSFUL;
    }
    DevicePtr target;
    KK_TRY(OpenDevice(targetPath, true, target));
    KK_TRY(FillTarget(*source, length, *target));
    target.Reset();
    source.Reset();
    if (extendFileSystem) {
        ExtendFileSystemToVolume(targetPath);
    }
    return KK_STATUS_SUCCESS;
}

}  // namespace kk
