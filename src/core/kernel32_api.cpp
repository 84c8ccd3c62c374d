#include "core/kernel32_api.h"

#include "core/library_binding.h"

namespace kk {

namespace {

constexpr EntryPoint kEntries[] = {
    {"SetVolumeMountPointW", offsetof(Kernel32Api, setVolumeMountPointW), true},
    {"DeleteVolumeMountPointW", offsetof(Kernel32Api, deleteVolumeMountPointW), true},
    {"CreateProcessW", offsetof(Kernel32Api, createProcessW), false},
    {"WaitForSingleObject", offsetof(Kernel32Api, waitForSingleObject), false},
    {"GetExitCodeProcess", offsetof(Kernel32Api, getExitCodeProcess), false},
    {"CloseHandle", offsetof(Kernel32Api, closeHandle), false},
    {"GetLogicalDrives", offsetof(Kernel32Api, getLogicalDrives), false},
    {"GetSystemDirectoryW", offsetof(Kernel32Api, getSystemDirectoryW), false},
};
static_assert(sizeof(kEntries) / sizeof(kEntries[0]) == offsetof(Kernel32Api, tried) / sizeof(void*));

constexpr LibraryBinding kLibrary = {u"kernel32.dll", kEntries};

constinit Kernel32Api gApi = {};

}  // namespace

const Kernel32Api& GetKernel32Api()
{
    return gApi;
}

bool BindKernel32()
{
    // Set before the attempt, so that whoever comes while the library loads, this thread included, does not begin anew.
    if (gApi.tried.SetFirst() && BindLibrary(kLibrary, &gApi) == Binding::Complete) {
        gApi.ok.Set();
    }
    return gApi.ok.IsSet();
}

}  // namespace kk
