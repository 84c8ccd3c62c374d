#pragma once

#include "backup/vss_interfaces.h"

namespace kk {

/// Entry points of ole32.dll and vssapi.dll.
struct SnapshotApi {
    CoInitializeExFn coInitializeEx;
    CoUninitializeFn coUninitialize;
    CoInitializeSecurityFn coInitializeSecurity;  // optional
    CreateVssBackupComponentsInternalFn createVssBackupComponentsInternal;
    VssFreeSnapshotPropertiesFn vssFreeSnapshotProperties;
    uint8_t tried;
    uint8_t ok;
};

/// The process-wide table; its entries are null until it is bound.
const SnapshotApi& GetSnapshotApi();

/// Whether snapshots can be taken on this system: binds the table on the first call, later calls repeat the answer.
[[nodiscard]] bool SnapshotServiceAvailable();

}  // namespace kk
