#include "image/overlay.h"

#include "core/native_file.h"
#include "core/nt_path.h"
#include "core/status.h"
#include "core/text.h"
#include "image/image_mounting.h"
#include "image/virtual_disk_api.h"

namespace kk {

namespace {

constexpr uint32_t kErrorInvalidFunction = 1;

constexpr OpenMode kOpenToDelete = {kDelete | kSynchronize, kFileShareRead | kFileShareWrite | kFileShareDelete,
                                    kFileOpen, kFileDeleteOnClose | kFileNonDirectoryFile | kFileSynchronousIoNonalert};

/// Deletes the file if it can be deleted. The path is taken as a Windows path whatever it looks like, on purpose: of
/// what is something else, nothing shall be deleted.
void DeleteOverlayFile(const char16_t* path)
{
    char16_t name[kNtPathUnits];
    size_t position = 0;
    AppendText(name, kNtPathUnits, position, u"\\??\\");
    AppendText(name, kNtPathUnits, position, path);
    NtHandle handle = nullptr;
    if (Failed(OpenNativeFile(name, kOpenToDelete, handle))) {
        return;
    }
    const HandleOwner closingDeletes(handle);
}

}  // namespace

KK_STATUS MountImageOverlay(const char16_t* parentPath, const char16_t* overlayPath, uint32_t* diskNumber)
{
    if (!BindVirtdiskImage() || GetVirtdiskImageApi().createVirtualDisk == nullptr) {
        return KK_STATUS_NOT_FOUND;
    }
    if (parentPath == nullptr || overlayPath == nullptr) {
        return KK_STATUS_INVALID_PARAMETER;
    }
    // Sizes stay zero: an overlay has its parent's.
    CreateVirtualDiskParameters parameters = {};
    parameters.version = kCreateVirtualDiskVersion2;
    parameters.parentPath = parentPath;
    NtHandle handle = nullptr;
    const uint32_t error =
        GetVirtdiskImageApi().createVirtualDisk(&kVhdxStorageType, overlayPath, kVirtualDiskAccessNone, nullptr,
                                                kCreateVirtualDiskFlagNone, 0, &parameters, nullptr, &handle);
    if (error != 0) {
        return StatusFromWin32(error);
    }
    return handle == nullptr ? StatusFromWin32(kErrorInvalidFunction) : AttachImageHandle(handle, diskNumber);
}

KK_STATUS DiscardOverlay(const char16_t* overlayPath)
{
    const KK_STATUS status = UnmountImage(overlayPath);
    // Also when the overlay was not mounted, on purpose: this is how a file that was left behind is cleared away.
    if (overlayPath != nullptr) {
        DeleteOverlayFile(overlayPath);
    }
    return status;
}

}  // namespace kk
