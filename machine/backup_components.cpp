#include "machine/backup_components.h"

#include <algorithm>
#include <utility>

#include "machine/machine.h"

namespace machine {
namespace {

constexpr size_t kVolumesLimit = 64;  // the service's own limit for one set

}  // namespace

AsyncObject::AsyncObject(SnapshotService& service, std::string operation, std::shared_ptr<bool> waited)
    : service_(service), operation_(std::move(operation)), behaviour_(service.Operation(operation_)),
      waited_(std::move(waited))
{
    methods = &AsyncMethods();
}

uint32_t AsyncObject::Release()
{
    if (--references_ == 0) {
        methods = &ReleasedAsyncMethods();
    }
    return references_;
}

HResult AsyncObject::Wait()
{
    *waited_ = *waited_ || behaviour_.waitResult >= 0;
    return behaviour_.waitResult;
}

HResult AsyncObject::QueryStatus(HResult* result, const int32_t* reserved)
{
    if (result == nullptr || reserved != nullptr) {
        return kInvalidArgument;
    }
    if (behaviour_.queryResult >= 0) {
        *result = *waited_ ? behaviour_.reported : kVssAsyncPending;
    }
    return behaviour_.queryResult;
}

BackupComponents::BackupComponents(SnapshotService& service) : service_(service)
{
    methods = &BackupComponentsMethods();
}

std::u16string BackupComponents::VolumeNameOf(const kk::Guid& snapshotId) const
{
    const auto found = std::find_if(snapshots_.begin(), snapshots_.end(),
                                    [&snapshotId](const Snapshot& snapshot) { return snapshot.id == snapshotId; });
    return found != snapshots_.end() ? found->volumeName : std::u16string();
}

uint32_t BackupComponents::Release()
{
    if (--references_ == 0) {
        methods = &ReleasedBackupComponentsMethods();
        for (Snapshot& snapshot : snapshots_) {
            service_.Delete(snapshot);
        }
        snapshots_.clear();
    }
    return references_;
}

HResult BackupComponents::InitializeForBackup(const char16_t* xml)
{
    if (initialized_) {
        return kVssBadState;
    }
    if (xml != nullptr) {
        return kInvalidArgument;
    }
    initialized_ = true;
    return kOk;
}

HResult BackupComponents::SetBackupState()
{
    if (!initialized_ || prepared_) {
        return kVssBadState;
    }
    stateSet_ = true;
    return kOk;
}

HResult BackupComponents::SetContext(int32_t context)
{
    if (!initialized_ || contextSet_ || gathered_ || setStarted_) {
        return kVssBadState;
    }
    if (context != kk::kVssContextBackup) {
        return kVssUnsupportedContext;
    }
    contextSet_ = true;
    return kOk;
}

HResult BackupComponents::GatherWriterMetadata(kk::VssAsync** async)
{
    if (!initialized_ || gathered_ || !IsIdle()) {
        return kVssBadState;
    }
    return Begin("GatherWriterMetadata", async, [this](HResult) { gathered_ = true; });
}

HResult BackupComponents::StartSnapshotSet(kk::Guid* setId)
{
    if (setId == nullptr) {
        return kInvalidArgument;
    }
    if (!gathered_ || !IsIdle()) {
        return kVssBadState;
    }
    if (service_.SetIsInProgress()) {
        return kVssSetInProgress;
    }
    if (setDone_) {
        return kVssBadState;
    }
    setStarted_ = true;
    setId_ = service_.NextId();
    *setId = setId_;
    return kOk;
}

HResult BackupComponents::AddToSnapshotSet(const char16_t* volumeName, const kk::Guid& providerId, kk::Guid* snapshotId)
{
    if (volumeName == nullptr || snapshotId == nullptr) {
        return kInvalidArgument;
    }
    if (!setStarted_ || setDone_ || !IsIdle()) {
        return kVssBadState;
    }
    const std::u16string name = volumeName;
    if (!name.starts_with(u"\\\\?\\Volume{") || !name.ends_with(u"}\\")) {
        return kInvalidArgument;
    }
    if (providerId != kk::Guid{}) {
        return kVssProviderNotRegistered;
    }
    const std::shared_ptr<Volume> volume = service_.Host().volumes.FindByPath(name);
    if (volume == nullptr) {
        return kVssObjectNotFound;
    }
    const bool added = std::any_of(snapshots_.begin(), snapshots_.end(),
                                   [&volume](const Snapshot& snapshot) { return snapshot.volume == volume; });
    if (added) {
        return kVssObjectAlreadyExists;
    }
    if (snapshots_.size() == kVolumesLimit) {
        return kVssTooManyVolumes;
    }
    snapshots_.push_back({.id = service_.NextId(), .setId = setId_, .volume = volume, .volumeName = name});
    *snapshotId = snapshots_.back().id;
    return kOk;
}

HResult BackupComponents::PrepareForBackup(kk::VssAsync** async)
{
    if (!gathered_ || !stateSet_ || prepared_ || !IsIdle()) {
        return kVssBadState;
    }
    return Begin("PrepareForBackup", async, [this](HResult) { prepared_ = true; });
}

HResult BackupComponents::DoSnapshotSet(kk::VssAsync** async)
{
    if (!prepared_ || !setStarted_ || setDone_ || snapshots_.empty() || !IsIdle()) {
        return kVssBadState;
    }
    return Begin("DoSnapshotSet", async, [this](HResult reported) {
        setDone_ = true;
        if (reported == kVssAsyncFinished) {
            TakeSnapshots();
        }
    });
}

HResult BackupComponents::GetSnapshotProperties(const kk::Guid& snapshotId, kk::VssSnapshotProperties* properties)
{
    if (properties == nullptr) {
        return kInvalidArgument;
    }
    if (!setDone_ || !IsIdle()) {
        return kVssBadState;
    }
    const auto found = std::find_if(snapshots_.begin(), snapshots_.end(), [&snapshotId](const Snapshot& snapshot) {
        return snapshot.id == snapshotId && snapshot.view != nullptr;
    });
    if (found == snapshots_.end()) {
        return kVssObjectNotFound;
    }
    service_.FillProperties(*found, *properties);
    return kOk;
}

/// Runs an operation in the way that the test asked for.
HResult BackupComponents::Begin(const std::string& operation, kk::VssAsync** async,
                                const std::function<void(HResult)>& work)
{
    if (async == nullptr) {
        return kInvalidArgument;
    }
    const AsyncBehaviour behaviour = service_.Operation(operation);
    const bool callSucceeds = behaviour.callResult >= 0;
    if (callSucceeds && behaviour.reported >= 0) {
        work(behaviour.reported);
    }
    if (behaviour.givesObject.value_or(callSucceeds)) {
        lastWaited_ = std::make_shared<bool>(false);
        *async = service_.MakeAsync(operation, lastWaited_);
    } else if (callSucceeds) {
        *async = nullptr;
    }
    return behaviour.callResult;
}

void BackupComponents::TakeSnapshots()
{
    for (Snapshot& snapshot : snapshots_) {
        service_.Take(snapshot);
    }
    service_.NotifyTaken();
}

}  // namespace machine
