#include "core/byte_buffer.h"
#include "core/native_file.h"
#include "core/status.h"
#include "core/text.h"
#include "disk/disk_layout.h"
#include "image/virtual_disk_api.h"

namespace kk {

namespace {

constexpr uint32_t kFirstAnswerBytes = sizeof(StorageDependencyInfo) + 33 * sizeof(StorageDependencyEntry);
constexpr uint32_t kErrorInsufficientBuffer = 122;

/// Needs no right to read the disk, only to ask about it.
constexpr OpenMode kOpenForAttributes = {kSynchronize | kFileReadAttributes, kFileShareRead | kFileShareWrite,
                                         kFileOpen, kFileNonDirectoryFile | kFileSynchronousIoNonalert};

/// One query with the whole, zeroed buffer.
uint32_t Query(NtHandle disk, ByteBuffer& answer, uint32_t& sizeUsed)
{
    ZeroBytes(answer.Data(), answer.Length());
    auto* const information = reinterpret_cast<StorageDependencyInfo*>(answer.Data());
    information->version = kStorageDependencyInfoVersion2;
    return GetVirtdiskImageApi().getStorageDependencyInformation(
        disk, kGetStorageDependencyFlagHostVolumes | kGetStorageDependencyFlagDiskHandle,
        static_cast<uint32_t>(answer.Length()), information, &sizeUsed);
}

/// Asks a second time, and no more, when the first answer did not fit. False when the disk is no image.
bool QueryDependencies(NtHandle disk, ByteBuffer& answer)
{
    if (!answer.Resize(kFirstAnswerBytes)) {
        return false;
    }
    uint32_t sizeUsed = 0;
    uint32_t error = Query(disk, answer, sizeUsed);
    if (error == kErrorInsufficientBuffer) {
        if (sizeUsed <= answer.Length() || !answer.Resize(sizeUsed)) {
            return false;
        }
        error = Query(disk, answer, sizeUsed);
    }
    return error == 0 && reinterpret_cast<const StorageDependencyInfo*>(answer.Data())->numberEntries != 0;
}

bool HasText(const char16_t* text)
{
    return text != nullptr && text[0] != 0;
}

/// Volume and path, joined by exactly one backslash; one alone stands for itself; with neither, the device's name.
void WriteBackingPath(const StorageDependencyEntry& entry, char16_t* path, size_t capacity)
{
    const char16_t* const volume = entry.hostVolumeName;
    const char16_t* relative = entry.dependentVolumeRelativePath;
    size_t position = 0;
    if (HasText(volume)) {
        AppendText(path, capacity, position, volume);
        if (!HasText(relative)) {
            return;
        }
        const bool volumeEnds = volume[TextLength(volume) - 1] == u'\\';
        const bool relativeBegins = relative[0] == u'\\';
        if (volumeEnds && relativeBegins) {
            ++relative;
        } else if (!volumeEnds && !relativeBegins) {
            AppendUnit(path, capacity, position, u'\\');
        }
        AppendText(path, capacity, position, relative);
    } else if (HasText(relative)) {
        AppendText(path, capacity, position, relative);
    } else if (entry.dependencyDeviceName != nullptr) {
        AppendText(path, capacity, position, entry.dependencyDeviceName);
    }
}

/// `isImage` may be null, and so may `path` when `capacity` is 0.
void QueryDiskImage(uint32_t diskNumber, uint32_t* isImage, char16_t* path, size_t capacity)
{
    if (!BindVirtdiskImage() || GetVirtdiskImageApi().getStorageDependencyInformation == nullptr) {
        return;
    }
    char16_t devicePath[kDevicePathUnits];
    FormatPhysicalDrivePath(diskNumber, devicePath, kDevicePathUnits);
    ByteBuffer answer;
    NtHandle handle = nullptr;
    if (Failed(OpenNativeFile(devicePath, kOpenForAttributes, handle))) {
        return;
    }
    const HandleOwner disk(handle);
    if (!QueryDependencies(handle, answer)) {
        return;
    }
    if (isImage != nullptr) {
        *isImage = 1;
    }
    // The texts lie in the answer, which lives to the end of this function.
    const auto& first = *reinterpret_cast<const StorageDependencyEntry*>(answer.Data() + sizeof(StorageDependencyInfo));
    WriteBackingPath(first, path, capacity);
}

}  // namespace

}  // namespace kk

KK_STATUS KK_CALL KkQueryDiskImage(uint32_t diskNumber, uint32_t* isImage, KkWideChar* imagePath,
                                   uint32_t imagePathChars)
{
    const uint32_t capacity = imagePath != nullptr ? imagePathChars : 0;
    if (isImage != nullptr) {
        *isImage = 0;
    }
    if (capacity > 0) {
        imagePath[0] = 0;
    }
    // Nothing is a failure here, on purpose: a disk of which nothing can be learnt is no image.
    kk::QueryDiskImage(diskNumber, isImage, kk::FromCaller(imagePath), capacity);
    return KK_STATUS_SUCCESS;
}
