#pragma once

#include <cstddef>
#include <cstdint>

#include "core/guid.h"
#include "core/nt_types.h"

// The virtual-disk service: records, constants and entry points of the Windows SDK's virtdisk.h, bound at run time.

namespace kk {

/// VIRTUAL_STORAGE_TYPE.
struct VirtualStorageType {
    uint32_t deviceId;
    Guid vendorId;
};
static_assert(sizeof(VirtualStorageType) == 20 && alignof(VirtualStorageType) == 4);

inline constexpr uint32_t kVirtualStorageTypeDeviceVhdx = 3;
inline constexpr Guid kVirtualStorageTypeVendorMicrosoft = {
    0xEC984AEC, 0xA0F9, 0x47E9, {0x90, 0x1F, 0x71, 0x41, 0x5A, 0x66, 0x34, 0x5B}};

inline constexpr uint32_t kVirtualDiskAccessNone = 0;
inline constexpr uint32_t kCreateVirtualDiskVersion2 = 2;
inline constexpr uint32_t kCreateVirtualDiskFlagNone = 0;

/// CREATE_VIRTUAL_DISK_PARAMETERS, version 2.
struct CreateVirtualDiskParameters {
    uint32_t version;
    uint32_t padding4;
    Guid uniqueId;
    uint64_t maximumSize;
    uint32_t blockSizeInBytes;
    uint32_t sectorSizeInBytes;
    uint32_t physicalSectorSizeInBytes;
    uint32_t padding44;
    const char16_t* parentPath;
    const char16_t* sourcePath;
    uint32_t openFlags;
    VirtualStorageType parentVirtualStorageType;
    VirtualStorageType sourceVirtualStorageType;
    Guid resiliencyGuid;
};
static_assert(sizeof(CreateVirtualDiskParameters) == 128 && offsetof(CreateVirtualDiskParameters, uniqueId) == 8);
static_assert(offsetof(CreateVirtualDiskParameters, maximumSize) == 24);
static_assert(offsetof(CreateVirtualDiskParameters, physicalSectorSizeInBytes) == 40);
static_assert(offsetof(CreateVirtualDiskParameters, parentPath) == 48);
static_assert(offsetof(CreateVirtualDiskParameters, parentVirtualStorageType) == 68);
static_assert(offsetof(CreateVirtualDiskParameters, resiliencyGuid) == 108);

inline constexpr uint32_t kAttachVirtualDiskFlagNoDriveLetter = 2;
inline constexpr uint32_t kDetachVirtualDiskFlagNone = 0;

/// Every entry point answers with a Win32 error, 0 for success.
using CreateVirtualDiskFn = uint32_t(KK_CALL*)(const VirtualStorageType* storageType, const char16_t* path,
                                               uint32_t accessMask, void* securityDescriptor, uint32_t flags,
                                               uint32_t providerFlags, const CreateVirtualDiskParameters* parameters,
                                               void* overlapped, NtHandle* handle);
using AttachVirtualDiskFn = uint32_t(KK_CALL*)(NtHandle handle, void* securityDescriptor, uint32_t flags,
                                               uint32_t providerFlags, const void* parameters, void* overlapped);
using DetachVirtualDiskFn = uint32_t(KK_CALL*)(NtHandle handle, uint32_t flags, uint32_t providerFlags);
using GetVirtualDiskPhysicalPathFn = uint32_t(KK_CALL*)(NtHandle handle, uint32_t* sizeInBytes, char16_t* path);

/// What creating and filling an image needs.
struct VirtdiskCreateApi {
    CreateVirtualDiskFn createVirtualDisk;
    AttachVirtualDiskFn attachVirtualDisk;
    DetachVirtualDiskFn detachVirtualDisk;
    GetVirtualDiskPhysicalPathFn getVirtualDiskPhysicalPath;
    uint8_t tried;
};

/// The process-wide table; its entries are null until it is bound, and any of them may stay null.
const VirtdiskCreateApi& GetVirtdiskCreateApi();

/// Binds the table on the first call and then tells whether all four entry points were found. Later calls tell only
/// whether `createVirtualDisk` was, on purpose: the table keeps no verdict, and creation is what callers ask for. So
/// users test the other entries before they call them.
[[nodiscard]] bool BindVirtdiskCreate();

}  // namespace kk
