#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "backup/vss_interfaces.h"
#include "machine/com_apartments.h"
#include "machine/com_values.h"
#include "machine/snapshot_view.h"

namespace machine {

class AsyncObject;
class BackupComponents;
class Machine;

/// How one of the operations that go on in the background ends. GatherWriterMetadata, PrepareForBackup and
/// DoSnapshotSet take effect only when neither the call nor the reported result is a failure.
struct AsyncBehaviour {
    HResult callResult = kOk;
    std::optional<bool> givesObject = std::nullopt;  // a call gives an object when it succeeds, unless told otherwise
    HResult waitResult = kOk;
    HResult queryResult = kOk;
    HResult reported = kVssAsyncFinished;
};

/// How CreateVssBackupComponentsInternal ends when all is well with COM.
struct CreationBehaviour {
    HResult result = kOk;
    bool givesObject = true;
};

/// One volume of a finished snapshot set.
struct Snapshot {
    kk::Guid id = {};
    kk::Guid setId = {};
    std::shared_ptr<Volume> volume = nullptr;
    std::u16string volumeName = {};  // as it was added
    uint32_t number = 0;             // N of HarddiskVolumeShadowCopyN
    std::shared_ptr<SnapshotView> view = nullptr;
    std::shared_ptr<VolumeAnswers> answers = nullptr;  // the device's own; those of the volume at that moment at first
};

/// The volume snapshot service: the objects of vssapi.dll, and what it needs of ole32.dll.
class SnapshotService {
public:
    explicit SnapshotService(Machine& machine);
    SnapshotService(const SnapshotService&) = delete;
    SnapshotService& operator=(const SnapshotService&) = delete;
    ~SnapshotService();

    /// The service of the machine that exists; ends the program when there is none.
    static SnapshotService& Current();

    // For tests.
    ComApartments apartments;
    CreationBehaviour creation;
    /// `name` is "GatherWriterMetadata", "PrepareForBackup" or "DoSnapshotSet".
    AsyncBehaviour& Operation(const std::string& name);
    /// Called whenever a snapshot set has been taken, before the call that took it returns.
    void OnSnapshotTaken(std::function<void()> hook) { onSnapshotTaken_ = std::move(hook); }
    /// Snapshots of the volume have no device name in their properties, or the given one.
    void OmitDeviceName(const Volume& volume) { deviceNames_[volume.Path()] = std::nullopt; }
    void SetDeviceName(const Volume& volume, std::u16string name) { deviceNames_[volume.Path()] = std::move(name); }
    /// The snapshots that exist, in the order in which they were taken.
    std::vector<const Snapshot*> Snapshots() const;
    static std::u16string DeviceName(uint32_t number);  // \Device\HarddiskVolumeShadowCopyN

    // For the objects.
    Machine& Host() { return machine_; }
    HResult CreateComponents(kk::VssBackupComponents** components);
    kk::VssAsync* MakeAsync(const std::string& operation, std::shared_ptr<bool> waited);
    kk::Guid NextId();
    bool SetIsInProgress() const;
    void Take(Snapshot& snapshot);
    void NotifyTaken();
    void Delete(Snapshot& snapshot);
    void FillProperties(const Snapshot& snapshot, kk::VssSnapshotProperties& properties);
    void FreeProperties(kk::VssSnapshotProperties* properties);
    void Uninitialize();
    std::vector<std::string> Imbalances() const;

private:
    char16_t* GiveString(const std::u16string& text);
    void TakeBackString(char16_t*& text);

    Machine& machine_;
    std::map<std::string, AsyncBehaviour> operations_;
    std::function<void()> onSnapshotTaken_;
    std::map<std::u16string, std::optional<std::u16string>> deviceNames_;  // by volume path
    // Objects stay after their last release, so that later calls of them are noticed.
    std::vector<std::unique_ptr<BackupComponents>> components_;
    std::vector<std::unique_ptr<AsyncObject>> asyncs_;
    std::map<const char16_t*, std::unique_ptr<char16_t[]>> strings_;
    uint32_t nextId_ = 1;
    uint32_t nextNumber_ = 1;
};

/// Gives the machine vssapi.dll and ole32.dll. The service lives as long as the machine.
SnapshotService& InstallSnapshotService(Machine& machine);

}  // namespace machine
