#include "backup/snapshot_set.h"

#include "backup/snapshot_api.h"
#include "core/checked_math.h"
#include "core/memory.h"
#include "core/status.h"
#include "core/text.h"

namespace kk {

namespace {

/// Releases an asynchronous operation.
class AsyncOwner {
public:
    AsyncOwner() = default;
    AsyncOwner(const AsyncOwner&) = delete;
    AsyncOwner& operator=(const AsyncOwner&) = delete;
    ~AsyncOwner()
    {
        if (async_ != nullptr) {
            (void)async_->methods->release(async_);
        }
    }

    [[nodiscard]] VssAsync** Receive() { return &async_; }
    [[nodiscard]] VssAsync* Get() const { return async_; }

private:
    VssAsync* async_ = nullptr;
};

using StartAsyncFn = HResult(KK_CALL*)(VssBackupComponents* self, VssAsync** async);

/// Starts an operation of the service and waits for its end. A result that is not negative, such as "cancelled",
/// counts as a success.
KK_STATUS RunAsync(VssBackupComponents* components, StartAsyncFn start)
{
    AsyncOwner async;
    KK_TRY(start(components, async.Receive()));
    if (async.Get() == nullptr) {
        return kEFail;
    }
    const VssAsyncVtable& methods = *async.Get()->methods;
    KK_TRY(methods.wait(async.Get(), kInfinite));
    HResult result = 0;
    KK_TRY(methods.queryStatus(async.Get(), &result, nullptr));
    KK_TRY(result);
    return KK_STATUS_SUCCESS;
}

KK_STATUS AllocateTable(SnapshotSet& set)
{
    if (set.table != nullptr) {
        return KK_STATUS_SUCCESS;
    }
    constexpr size_t bytes = kMaxSnapshots * sizeof(SnapshotTableEntry);
    set.table = static_cast<SnapshotTableEntry*>(MemAlloc(bytes));
    if (set.table == nullptr) {
        return KK_STATUS_NO_MEMORY;
    }
    ZeroBytes(set.table, bytes);
    return KK_STATUS_SUCCESS;
}

KK_STATUS EnterCom(SnapshotSet& set)
{
    const SnapshotApi& api = GetSnapshotApi();
    const HResult result = api.coInitializeEx(nullptr, kCoinitMultithreaded);
    // A thread that belongs to another kind of apartment will do, and stays in it.
    if (result != kRpcEChangedMode) {
        KK_TRY(result);
        set.comInitialized = true;
    }
    if (api.coInitializeSecurity != nullptr) {
        // Ignored on purpose: a process may have set its security already.
        (void)api.coInitializeSecurity(nullptr, -1, nullptr, nullptr, kAuthnLevelPacketPrivacy,
                                       kImpersonationLevelIdentify, nullptr, kAuthenticationCapabilitiesNone, nullptr);
    }
    return KK_STATUS_SUCCESS;
}

/// A success without an object is passed on, unless it is 0.
KK_STATUS CreateComponents(SnapshotSet& set)
{
    const HResult result = GetSnapshotApi().createVssBackupComponentsInternal(&set.components);
    return result == 0 && set.components == nullptr ? KK_STATUS_UNSUCCESSFUL : result;
}

KK_STATUS PrepareComponents(VssBackupComponents* components)
{
    const VssBackupComponentsVtable& methods = *components->methods;
    KK_TRY(methods.initializeForBackup(components, nullptr));
    KK_TRY(methods.setBackupState(components, true, true, kVssBackupTypeFull, false));
    KK_TRY(methods.setContext(components, kVssContextBackup));
    return RunAsync(components, methods.gatherWriterMetadata);
}

KK_STATUS AddVolumes(SnapshotSet& set, const char16_t* const* volumeNames, uint32_t count,
                     Guid (&snapshotIds)[kMaxSnapshots])
{
    const VssBackupComponentsVtable& methods = *set.components->methods;
    Guid setId = {};
    KK_TRY(methods.startSnapshotSet(set.components, &setId));
    for (uint32_t i = 0; i < count; ++i) {
        SnapshotTableEntry& entry = set.table[i];
        char16_t name[kVolumeNameUnits];
        CopyText(name, kVolumeNameUnits, volumeNames[i]);
        constexpr Guid systemChoosesProvider = {};
        KK_TRY(methods.addToSnapshotSet(set.components, name, systemChoosesProvider, &snapshotIds[i]));
        CopyText(entry.volumeName, kVolumeNameUnits, name);
        entry.snapshotDevice[0] = 0;
    }
    set.count = count;
    return KK_STATUS_SUCCESS;
}

/// A volume whose snapshot device cannot be learnt goes without.
void LearnDevice(SnapshotSet& set, const Guid& snapshotId, SnapshotTableEntry& entry)
{
    VssSnapshotProperties properties = {};
    if (Failed(set.components->methods->getSnapshotProperties(set.components, snapshotId, &properties))) {
        return;
    }
    if (properties.snapshotDeviceObject != nullptr) {
        CopyText(entry.snapshotDevice, kSnapshotDeviceUnits, properties.snapshotDeviceObject);
    }
    GetSnapshotApi().vssFreeSnapshotProperties(&properties);
}

}  // namespace

SnapshotSet::~SnapshotSet()
{
    ReleaseSnapshots(*this);
}

KK_STATUS CreateSnapshots(SnapshotSet& set, const char16_t* const* volumeNames, uint32_t count)
{
    if (count == 0) {
        return KK_STATUS_SUCCESS;
    }
    count = Min(count, kMaxSnapshots);
    if (!SnapshotServiceAvailable()) {
        return KK_STATUS_NOT_FOUND;
    }
    KK_TRY(AllocateTable(set));
    KK_TRY(EnterCom(set));
    if (const KK_STATUS status = CreateComponents(set); Failed(status) || set.components == nullptr) {
        return status;
    }
    KK_TRY(PrepareComponents(set.components));

    Guid snapshotIds[kMaxSnapshots] = {};
    KK_TRY(AddVolumes(set, volumeNames, count, snapshotIds));
    const VssBackupComponentsVtable& methods = *set.components->methods;
    KK_TRY(RunAsync(set.components, methods.prepareForBackup));
    KK_TRY(RunAsync(set.components, methods.doSnapshotSet));
    for (uint32_t i = 0; i < count; ++i) {
        LearnDevice(set, snapshotIds[i], set.table[i]);
    }
    return KK_STATUS_SUCCESS;
}

const char16_t* FindSnapshotDevice(const SnapshotSet& set, const char16_t* volumeName)
{
    if (set.table == nullptr) {
        return nullptr;
    }
    for (uint32_t i = 0; i < set.count; ++i) {
        const SnapshotTableEntry& entry = set.table[i];
        if (entry.snapshotDevice[0] != 0 && SameText(entry.volumeName, volumeName)) {
            return entry.snapshotDevice;
        }
    }
    return nullptr;
}

void ReleaseSnapshots(SnapshotSet& set)
{
    // Nothing is deleted and no completion is reported, on purpose: snapshots of the backup context end with the
    // object.
    if (set.components != nullptr) {
        (void)set.components->methods->release(set.components);
        set.components = nullptr;
    }
    if (set.comInitialized && GetSnapshotApi().coUninitialize != nullptr) {
        GetSnapshotApi().coUninitialize();
        set.comInitialized = false;
    }
    MemFree(set.table);
    set.table = nullptr;
    set.count = 0;
}

}  // namespace kk
