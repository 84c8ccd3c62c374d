#pragma once

#include "backup/vss_interfaces.h"
#include "core/shared_flag.h"

namespace kk {

/// Entry points of ole32.dll and vssapi.dll.
struct SnapshotApi {
    CoInitializeExFn coInitializeEx;
    CoUninitializeFn coUninitialize;
    CoInitializeSecurityFn coInitializeSecurity;  // optional
    CreateVssBackupComponentsInternalFn createVssBackupComponentsInternal;
    VssFreeSnapshotPropertiesFn vssFreeSnapshotProperties;
    SharedFlag tried;
    SharedFlag ok;
};

/// The process-wide table; its entries are null until it is bound.
const SnapshotApi& GetSnapshotApi();

/// Whether snapshots can be taken on this system: binds the table on the first call; later calls repeat the answer, and
/// tell false until there is one.
[[nodiscard]] bool SnapshotServiceAvailable();

}  // namespace kk
