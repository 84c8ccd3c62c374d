#include "image/virtual_disk_api.h"

#include "core/library_binding.h"

namespace kk {

namespace {

constexpr EntryPoint kCreateEntries[] = {
    {"CreateVirtualDisk", offsetof(VirtdiskCreateApi, createVirtualDisk), true},
    {"AttachVirtualDisk", offsetof(VirtdiskCreateApi, attachVirtualDisk), true},
    {"DetachVirtualDisk", offsetof(VirtdiskCreateApi, detachVirtualDisk), true},
    {"GetVirtualDiskPhysicalPath", offsetof(VirtdiskCreateApi, getVirtualDiskPhysicalPath), true},
};
static_assert(sizeof(kCreateEntries) / sizeof(kCreateEntries[0]) == offsetof(VirtdiskCreateApi, tried) / sizeof(void*));

constexpr EntryPoint kImageEntries[] = {
    {"OpenVirtualDisk", offsetof(VirtdiskImageApi, openVirtualDisk), true},
    {"AttachVirtualDisk", offsetof(VirtdiskImageApi, attachVirtualDisk), true},
    {"DetachVirtualDisk", offsetof(VirtdiskImageApi, detachVirtualDisk), true},
    {"GetVirtualDiskPhysicalPath", offsetof(VirtdiskImageApi, getVirtualDiskPhysicalPath), true},
    {"GetStorageDependencyInformation", offsetof(VirtdiskImageApi, getStorageDependencyInformation), false},
    {"CreateVirtualDisk", offsetof(VirtdiskImageApi, createVirtualDisk), false},
};
static_assert(sizeof(kImageEntries) / sizeof(kImageEntries[0]) == offsetof(VirtdiskImageApi, tried) / sizeof(void*));

constexpr char16_t kLibraryName[] = u"virtdisk.dll";
constexpr LibraryBinding kCreateLibrary = {kLibraryName, kCreateEntries};
constexpr LibraryBinding kImageLibrary = {kLibraryName, kImageEntries};

constinit VirtdiskCreateApi gCreateApi = {};
constinit VirtdiskImageApi gImageApi = {};

}  // namespace

const VirtdiskCreateApi& GetVirtdiskCreateApi()
{
    return gCreateApi;
}

const VirtdiskImageApi& GetVirtdiskImageApi()
{
    return gImageApi;
}

bool BindVirtdiskCreate()
{
    if (gCreateApi.tried.SetFirst()) {
        return BindLibrary(kCreateLibrary, &gCreateApi) == Binding::Complete;
    }
    return LoadShared(gCreateApi.createVirtualDisk) != nullptr;
}

bool BindVirtdiskImage()
{
    if (gImageApi.tried.SetFirst() && BindLibrary(kImageLibrary, &gImageApi) == Binding::Complete) {
        gImageApi.usable.Set();
    }
    return gImageApi.usable.IsSet();
}

}  // namespace kk
