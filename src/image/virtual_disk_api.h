#pragma once

#include <cstddef>
#include <cstdint>

#include "core/guid.h"
#include "core/nt_types.h"
#include "core/shared_flag.h"

// The virtual-disk service: records, constants and entry points of the Windows SDK's virtdisk.h, bound at run time.

namespace kk {

/// VIRTUAL_STORAGE_TYPE.
struct VirtualStorageType {
    uint32_t deviceId;
    Guid vendorId;
};
static_assert(sizeof(VirtualStorageType) == 20 && alignof(VirtualStorageType) == 4);

/// With a zero vendor: the service finds out what the file is.
inline constexpr uint32_t kVirtualStorageTypeDeviceUnknown = 0;
inline constexpr uint32_t kVirtualStorageTypeDeviceVhdx = 3;
inline constexpr Guid kVirtualStorageTypeVendorMicrosoft = {
    0xEC984AEC, 0xA0F9, 0x47E9, {0x90, 0x1F, 0x71, 0x41, 0x5A, 0x66, 0x34, 0x5B}};

/// The type of every file that is created.
inline constexpr VirtualStorageType kVhdxStorageType = {kVirtualStorageTypeDeviceVhdx,
                                                        kVirtualStorageTypeVendorMicrosoft};

inline constexpr uint32_t kVirtualDiskAccessNone = 0;
inline constexpr uint32_t kVirtualDiskAccessAttachRw = 0x20000;
inline constexpr uint32_t kVirtualDiskAccessDetach = 0x40000;
inline constexpr uint32_t kVirtualDiskAccessGetInfo = 0x80000;
inline constexpr uint32_t kOpenVirtualDiskFlagNone = 0;
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
inline constexpr uint32_t kAttachVirtualDiskFlagPermanentLifetime = 4;
inline constexpr uint32_t kAttachVirtualDiskVersion1 = 1;
inline constexpr uint32_t kDetachVirtualDiskFlagNone = 0;

/// ATTACH_VIRTUAL_DISK_PARAMETERS with the room of version 2. The reserved field of version 1 lies at 4 or at 8,
/// depending on the SDK.
struct AttachVirtualDiskParameters {
    uint32_t version;
    uint32_t reserved4;
    uint64_t reserved8[2];
};
static_assert(sizeof(AttachVirtualDiskParameters) == 24);

inline constexpr uint32_t kGetStorageDependencyFlagHostVolumes = 1;
inline constexpr uint32_t kGetStorageDependencyFlagDiskHandle = 2;
inline constexpr uint32_t kStorageDependencyInfoVersion2 = 2;

/// STORAGE_DEPENDENCY_INFO_TYPE_2. The texts lie in the answer that holds the record; each may be null.
struct StorageDependencyEntry {
    uint32_t dependencyTypeFlags;
    uint32_t providerSpecificFlags;
    VirtualStorageType virtualStorageType;
    uint32_t ancestorLevel;
    const char16_t* dependencyDeviceName;
    const char16_t* hostVolumeName;
    const char16_t* dependentVolumeName;
    const char16_t* dependentVolumeRelativePath;
};
static_assert(sizeof(StorageDependencyEntry) == 64 && offsetof(StorageDependencyEntry, virtualStorageType) == 8);
static_assert(offsetof(StorageDependencyEntry, dependencyDeviceName) == 32);
static_assert(offsetof(StorageDependencyEntry, dependentVolumeRelativePath) == 56);

/// The head of STORAGE_DEPENDENCY_INFO; `numberEntries` StorageDependencyEntry records follow it.
struct StorageDependencyInfo {
    uint32_t version;
    uint32_t numberEntries;
};
static_assert(sizeof(StorageDependencyInfo) == 8);

/// Units of the buffers for device paths, \\.\PhysicalDriveN.
inline constexpr uint32_t kPhysicalPathUnits = 512;

/// Every entry point answers with a Win32 error, 0 for success.
using OpenVirtualDiskFn = uint32_t(KK_CALL*)(const VirtualStorageType* storageType, const char16_t* path,
                                             uint32_t accessMask, uint32_t flags, const void* parameters,
                                             NtHandle* handle);
using CreateVirtualDiskFn = uint32_t(KK_CALL*)(const VirtualStorageType* storageType, const char16_t* path,
                                               uint32_t accessMask, void* securityDescriptor, uint32_t flags,
                                               uint32_t providerFlags, const CreateVirtualDiskParameters* parameters,
                                               void* overlapped, NtHandle* handle);
using AttachVirtualDiskFn = uint32_t(KK_CALL*)(NtHandle handle, void* securityDescriptor, uint32_t flags,
                                               uint32_t providerFlags, const AttachVirtualDiskParameters* parameters,
                                               void* overlapped);
using DetachVirtualDiskFn = uint32_t(KK_CALL*)(NtHandle handle, uint32_t flags, uint32_t providerFlags);
using GetVirtualDiskPhysicalPathFn = uint32_t(KK_CALL*)(NtHandle handle, uint32_t* sizeInBytes, char16_t* path);
using GetStorageDependencyInformationFn = uint32_t(KK_CALL*)(NtHandle disk, uint32_t flags, uint32_t size,
                                                             StorageDependencyInfo* information, uint32_t* sizeUsed);

/// What creating and filling an image needs.
struct VirtdiskCreateApi {
    CreateVirtualDiskFn createVirtualDisk;
    AttachVirtualDiskFn attachVirtualDisk;
    DetachVirtualDiskFn detachVirtualDisk;
    GetVirtualDiskPhysicalPathFn getVirtualDiskPhysicalPath;
    SharedFlag tried;
};

/// What working with existing images needs. The last two are optional: who needs one tests for it.
struct VirtdiskImageApi {
    OpenVirtualDiskFn openVirtualDisk;
    AttachVirtualDiskFn attachVirtualDisk;
    DetachVirtualDiskFn detachVirtualDisk;
    GetVirtualDiskPhysicalPathFn getVirtualDiskPhysicalPath;
    GetStorageDependencyInformationFn getStorageDependencyInformation;
    CreateVirtualDiskFn createVirtualDisk;
    SharedFlag tried;
    SharedFlag usable;
};

/// The process-wide tables; their entries are null until they are bound, and any of them may stay null.
const VirtdiskCreateApi& GetVirtdiskCreateApi();
const VirtdiskImageApi& GetVirtdiskImageApi();

/// Binds the table on the first call and then tells whether all four entry points were found. Later calls tell only
/// whether `createVirtualDisk` was, on purpose: the table keeps no verdict, and creation is what callers ask for. So
/// users test the other entries before they call them. False too while another thread binds.
[[nodiscard]] bool BindVirtdiskCreate();

/// Binds the table on the first call; tells then and later whether the required entry points were found. False too
/// while another thread binds.
[[nodiscard]] bool BindVirtdiskImage();

}  // namespace kk
