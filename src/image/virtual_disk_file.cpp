#include "image/virtual_disk_file.h"

#include "core/nt.h"
#include "image/virtual_disk_api.h"

namespace kk {

VirtualDiskFile::~VirtualDiskFile()
{
    const VirtdiskCreateApi& api = GetVirtdiskCreateApi();
    if (attached_ && api.detachVirtualDisk != nullptr) {
        (void)api.detachVirtualDisk(handle_, kDetachVirtualDiskFlagNone, 0);
    }
    if (handle_ != nullptr) {
        (void)NtClose(handle_);
    }
}

KK_STATUS VirtualDiskFile::Create(const char16_t* path, uint64_t maximumSize, uint32_t logicalSectorSize,
                                  uint32_t blockSize)
{
    if (!BindVirtdiskCreate()) {
        return KK_STATUS_NOT_FOUND;
    }
    constexpr uint32_t physicalSectorSize = 4096;
    CreateVirtualDiskParameters parameters = {};
    parameters.version = kCreateVirtualDiskVersion2;
    parameters.maximumSize = maximumSize;
    parameters.blockSizeInBytes = blockSize;
    parameters.sectorSizeInBytes = logicalSectorSize;
    parameters.physicalSectorSizeInBytes = physicalSectorSize;

    NtHandle handle = nullptr;
    const uint32_t error =
        GetVirtdiskCreateApi().createVirtualDisk(&kVhdxStorageType, path, kVirtualDiskAccessNone, nullptr,
                                                 kCreateVirtualDiskFlagNone, 0, &parameters, nullptr, &handle);
    if (error != 0) {
        return KK_STATUS_UNSUCCESSFUL;
    }
    handle_ = handle;
    return KK_STATUS_SUCCESS;
}

KK_STATUS VirtualDiskFile::Attach()
{
    if (handle_ == nullptr) {
        return KK_STATUS_INVALID_PARAMETER;
    }
    // A second backup gets past a binding that missed these; see BindVirtdiskCreate.
    const VirtdiskCreateApi& api = GetVirtdiskCreateApi();
    if (api.attachVirtualDisk == nullptr || api.getVirtualDiskPhysicalPath == nullptr ||
        api.detachVirtualDisk == nullptr) {
        return KK_STATUS_NOT_FOUND;
    }
    if (api.attachVirtualDisk(handle_, nullptr, kAttachVirtualDiskFlagNoDriveLetter, 0, nullptr, nullptr) != 0) {
        return KK_STATUS_UNSUCCESSFUL;
    }
    attached_ = true;

    uint32_t bytes = sizeof(physicalPath_);
    const uint32_t error = api.getVirtualDiskPhysicalPath(handle_, &bytes, physicalPath_);
    physicalPath_[kPhysicalPathUnits - 1] = 0;
    // The disk stays attached after a failure here; the end of this object detaches it.
    return error == 0 ? KK_STATUS_SUCCESS : KK_STATUS_UNSUCCESSFUL;
}

KK_STATUS VirtualDiskFile::Detach()
{
    if (!attached_) {
        return KK_STATUS_SUCCESS;
    }
    attached_ = false;
    const uint32_t error = GetVirtdiskCreateApi().detachVirtualDisk(handle_, kDetachVirtualDiskFlagNone, 0);
    return error == 0 ? KK_STATUS_SUCCESS : KK_STATUS_UNSUCCESSFUL;
}

}  // namespace kk
