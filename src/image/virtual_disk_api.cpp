#include "image/virtual_disk_api.h"

#include "core/library_binding.h"

namespace kk {

namespace {

constexpr EntryPoint kEntries[] = {
    {"CreateVirtualDisk", offsetof(VirtdiskCreateApi, createVirtualDisk), true},
    {"AttachVirtualDisk", offsetof(VirtdiskCreateApi, attachVirtualDisk), true},
    {"DetachVirtualDisk", offsetof(VirtdiskCreateApi, detachVirtualDisk), true},
    {"GetVirtualDiskPhysicalPath", offsetof(VirtdiskCreateApi, getVirtualDiskPhysicalPath), true},
};
static_assert(sizeof(kEntries) / sizeof(kEntries[0]) == offsetof(VirtdiskCreateApi, tried) / sizeof(void*));

constexpr LibraryBinding kLibrary = {u"virtdisk.dll", kEntries};

constinit VirtdiskCreateApi gApi = {};

}  // namespace

const VirtdiskCreateApi& GetVirtdiskCreateApi()
{
    return gApi;
}

bool BindVirtdiskCreate()
{
    if (gApi.tried != 0) {
        return gApi.createVirtualDisk != nullptr;
    }
    gApi.tried = 1;
    return BindLibrary(kLibrary, &gApi) == Binding::Complete;
}

}  // namespace kk
