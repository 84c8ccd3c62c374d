#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "machine/snapshot_service.h"

namespace machine {

/// IVssAsync. The operation is done when the object is made; callers learn of it by waiting.
class AsyncObject : public kk::VssAsync {
public:
    /// `waited` becomes true when the caller has waited.
    AsyncObject(SnapshotService& service, std::string operation, std::shared_ptr<bool> waited);

    SnapshotService& Service() { return service_; }
    const std::string& Operation() const { return operation_; }
    uint32_t References() const { return references_; }

    uint32_t AddRef() { return ++references_; }
    uint32_t Release();
    HResult Wait();
    HResult QueryStatus(HResult* result, const int32_t* reserved);

private:
    SnapshotService& service_;
    std::string operation_;
    AsyncBehaviour behaviour_;
    std::shared_ptr<bool> waited_;
    uint32_t references_ = 1;
};

/// IVssBackupComponents, as far as a backup of volumes goes. Insists on the order of calls.
class BackupComponents : public kk::VssBackupComponents {
public:
    explicit BackupComponents(SnapshotService& service);

    SnapshotService& Service() { return service_; }
    uint32_t References() const { return references_; }
    const std::vector<Snapshot>& Snapshots() const { return snapshots_; }
    bool HasSetInProgress() const { return setStarted_ && !setDone_ && references_ != 0; }
    /// The volume that a snapshot was asked of, as the caller named it.
    std::u16string VolumeNameOf(const kk::Guid& snapshotId) const;

    uint32_t AddRef() { return ++references_; }
    uint32_t Release();
    HResult InitializeForBackup(const char16_t* xml);
    HResult SetBackupState();
    HResult SetContext(int32_t context);
    HResult GatherWriterMetadata(kk::VssAsync** async);
    HResult StartSnapshotSet(kk::Guid* setId);
    HResult AddToSnapshotSet(const char16_t* volumeName, const kk::Guid& providerId, kk::Guid* snapshotId);
    HResult PrepareForBackup(kk::VssAsync** async);
    HResult DoSnapshotSet(kk::VssAsync** async);
    HResult GetSnapshotProperties(const kk::Guid& snapshotId, kk::VssSnapshotProperties* properties);

private:
    bool IsIdle() const { return *lastWaited_; }
    HResult Begin(const std::string& operation, kk::VssAsync** async, const std::function<void(HResult)>& work);
    void TakeSnapshots();

    SnapshotService& service_;
    uint32_t references_ = 1;
    bool initialized_ = false;
    bool stateSet_ = false;
    bool contextSet_ = false;
    bool gathered_ = false;
    bool setStarted_ = false;
    bool prepared_ = false;
    bool setDone_ = false;
    std::shared_ptr<bool> lastWaited_ = std::make_shared<bool>(true);
    kk::Guid setId_ = {};
    std::vector<Snapshot> snapshots_;
};

/// The tables of methods that callers see.
const kk::VssAsyncVtable& AsyncMethods();
const kk::VssBackupComponentsVtable& BackupComponentsMethods();
/// The same of objects that are gone: traps in every slot.
const kk::VssAsyncVtable& ReleasedAsyncMethods();
const kk::VssBackupComponentsVtable& ReleasedBackupComponentsMethods();

}  // namespace machine
