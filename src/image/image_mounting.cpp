#include "image/image_mounting.h"

#include "core/native_file.h"
#include "core/status.h"
#include "core/text.h"
#include "image/virtual_disk_api.h"

namespace kk {

namespace {

bool IsDigit(char16_t unit)
{
    return unit >= u'0' && unit <= u'9';
}

/// The number at the end of a disk's name, modulo 2^32. False without one.
bool TrailingNumber(const char16_t* path, uint32_t& number)
{
    const size_t length = TextLength(path);
    size_t first = length;
    while (first > 0 && IsDigit(path[first - 1])) {
        --first;
    }
    if (first == length) {
        return false;
    }
    number = 0;
    for (size_t i = first; i < length; ++i) {
        number = number * 10 + (path[i] - u'0');
    }
    return true;
}

/// Opens an image of any format that the service knows. All its reasons are "file not found", on purpose: callers need
/// to know only that there is nothing to work with.
KK_STATUS OpenImage(const char16_t* path, uint32_t access, NtHandle& handle)
{
    if (!BindVirtdiskImage()) {
        return KK_STATUS_NOT_FOUND;
    }
    if (path == nullptr) {
        return KK_STATUS_INVALID_PARAMETER;
    }
    constexpr VirtualStorageType anyType = {kVirtualStorageTypeDeviceUnknown, {}};
    handle = nullptr;
    const uint32_t error =
        GetVirtdiskImageApi().openVirtualDisk(&anyType, path, access, kOpenVirtualDiskFlagNone, nullptr, &handle);
    return error != 0 || handle == nullptr ? KK_E_FILE_NOT_FOUND : KK_STATUS_SUCCESS;
}

}  // namespace

KK_STATUS AttachImageHandle(NtHandle handle, uint32_t* diskNumber)
{
    // Closing the handle does not end the attachment: it is permanent.
    const HandleOwner owner(handle);
    const VirtdiskImageApi& api = GetVirtdiskImageApi();
    const AttachVirtualDiskParameters parameters = {kAttachVirtualDiskVersion1, 0, {}};
    uint32_t error =
        api.attachVirtualDisk(handle, nullptr, kAttachVirtualDiskFlagPermanentLifetime, 0, &parameters, nullptr);
    if (error != 0) {
        return StatusFromWin32(error);
    }
    char16_t path[kPhysicalPathUnits] = {};
    uint32_t bytes = sizeof(path);
    error = api.getVirtualDiskPhysicalPath(handle, &bytes, path);
    if (error != 0) {
        return StatusFromWin32(error);
    }
    path[kPhysicalPathUnits - 1] = 0;
    uint32_t number = 0;
    if (TrailingNumber(path, number) && diskNumber != nullptr) {
        *diskNumber = number;
    }
    return KK_STATUS_SUCCESS;
}

KK_STATUS MountImage(const char16_t* path, uint32_t* diskNumber)
{
    NtHandle handle = nullptr;
    KK_TRY(OpenImage(path, kVirtualDiskAccessAttachRw | kVirtualDiskAccessGetInfo, handle));
    return AttachImageHandle(handle, diskNumber);
}

KK_STATUS UnmountImage(const char16_t* path)
{
    NtHandle handle = nullptr;
    KK_TRY(OpenImage(path, kVirtualDiskAccessDetach, handle));
    const HandleOwner owner(handle);
    const uint32_t error = GetVirtdiskImageApi().detachVirtualDisk(handle, kDetachVirtualDiskFlagNone, 0);
    return error == 0 ? KK_STATUS_SUCCESS : StatusFromWin32(error);
}

}  // namespace kk
