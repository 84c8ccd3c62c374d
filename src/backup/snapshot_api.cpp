#include "backup/snapshot_api.h"

#include "core/library_binding.h"

namespace kk {

namespace {

constexpr EntryPoint kComEntries[] = {
    {"CoInitializeEx", offsetof(SnapshotApi, coInitializeEx), true},
    {"CoUninitialize", offsetof(SnapshotApi, coUninitialize), true},
    {"CoInitializeSecurity", offsetof(SnapshotApi, coInitializeSecurity), false},
};

constexpr EntryPoint kSnapshotEntries[] = {
    {"CreateVssBackupComponentsInternal", offsetof(SnapshotApi, createVssBackupComponentsInternal), true},
    {"VssFreeSnapshotProperties", offsetof(SnapshotApi, vssFreeSnapshotProperties), true},
};

static_assert(sizeof(kComEntries) / sizeof(kComEntries[0]) + sizeof(kSnapshotEntries) / sizeof(kSnapshotEntries[0]) ==
              offsetof(SnapshotApi, tried) / sizeof(void*));

constexpr LibraryBinding kComLibrary = {u"ole32.dll", kComEntries};
constexpr LibraryBinding kSnapshotLibrary = {u"vssapi.dll", kSnapshotEntries};

constinit SnapshotApi gApi = {};

bool BindBothLibraries()
{
    const Binding com = BindLibrary(kComLibrary, &gApi);
    if (com == Binding::NotLoaded) {
        return false;
    }
    const Binding snapshots = BindLibrary(kSnapshotLibrary, &gApi);
    return com == Binding::Complete && snapshots == Binding::Complete;
}

}  // namespace

const SnapshotApi& GetSnapshotApi()
{
    return gApi;
}

bool SnapshotServiceAvailable()
{
    if (gApi.tried.SetFirst() && BindBothLibraries()) {
        gApi.ok.Set();
    }
    return gApi.ok.IsSet();
}

}  // namespace kk
