#include <cstddef>
#include <utility>

#include "machine/backup_components.h"
#include "machine/com_traps.h"
#include "machine/device.h"
#include "machine/gate.h"
#include "machine/machine.h"
#include "machine/native_text.h"
#include "machine/snapshot_service.h"
#include "machine/text.h"

// What callers of vssapi.dll and ole32.dll see: entry points and methods, each of which makes a record of its
// arguments, passes the gate and lets the service or the object do the work.

namespace machine {
namespace {

CallRecord RecordOf(const char* name)
{
    return {.kind = CallKind::ComMethod, .name = name, .object = {}};
}

template <typename Body>
HResult PassMethod(CallRecord record, Body&& body)
{
    return PassGate(Machine::Current(), std::move(record), [&body](CallRecord&) -> HResult { return body(); });
}

/// For AddRef and Release, which cannot fail.
template <typename Body>
uint32_t PassCount(CallRecord record, Body&& body)
{
    record.kind = CallKind::Release;
    return PassGate(Machine::Current(), std::move(record), [&body](CallRecord&) -> uint32_t { return body(); });
}

BackupComponents& ObjectOf(kk::VssBackupComponents* self)
{
    return static_cast<BackupComponents&>(*self);
}

AsyncObject& ObjectOf(kk::VssAsync* self)
{
    return static_cast<AsyncObject&>(*self);
}

// IVssAsync.

CallRecord AsyncRecord(const char* name, kk::VssAsync* self)
{
    CallRecord record = RecordOf(name);
    record.object = ObjectOf(self).Operation();
    return record;
}

uint32_t KK_CALL AsyncAddRef(kk::VssAsync* self)
{
    return PassCount(AsyncRecord("IVssAsync::AddRef", self), [self] { return ObjectOf(self).AddRef(); });
}

uint32_t KK_CALL AsyncRelease(kk::VssAsync* self)
{
    return PassCount(AsyncRecord("IVssAsync::Release", self), [self] { return ObjectOf(self).Release(); });
}

HResult KK_CALL AsyncWait(kk::VssAsync* self, uint32_t milliseconds)
{
    CallRecord record = AsyncRecord("IVssAsync::Wait", self);
    record.length = milliseconds;
    return PassMethod(std::move(record), [self] { return ObjectOf(self).Wait(); });
}

HResult KK_CALL AsyncQueryStatus(kk::VssAsync* self, HResult* result, int32_t* reserved)
{
    return PassMethod(AsyncRecord("IVssAsync::QueryStatus", self),
                      [=] { return ObjectOf(self).QueryStatus(result, reserved); });
}

// IVssBackupComponents.

/// The volume behind a snapshot, so that records and faults can name it.
std::string VolumeName(kk::VssBackupComponents* self, const kk::Guid& snapshotId)
{
    const MachineLock lock(Machine::Current());
    return Utf8(ObjectOf(self).VolumeNameOf(snapshotId));
}

uint32_t KK_CALL AddRef(kk::VssBackupComponents* self)
{
    return PassCount(RecordOf("IVssBackupComponents::AddRef"), [self] { return ObjectOf(self).AddRef(); });
}

uint32_t KK_CALL Release(kk::VssBackupComponents* self)
{
    return PassCount(RecordOf("IVssBackupComponents::Release"), [self] { return ObjectOf(self).Release(); });
}

HResult KK_CALL InitializeForBackup(kk::VssBackupComponents* self, char16_t* xml)
{
    return PassMethod(RecordOf("IVssBackupComponents::InitializeForBackup"),
                      [=] { return ObjectOf(self).InitializeForBackup(xml); });
}

HResult KK_CALL SetBackupState(kk::VssBackupComponents* self, bool selectComponents, bool bootableSystemState,
                               uint32_t backupType, bool partialFileSupport)
{
    CallRecord record = RecordOf("IVssBackupComponents::SetBackupState");
    record.code = backupType;
    record.options = (selectComponents ? 1u : 0) | (bootableSystemState ? 2u : 0) | (partialFileSupport ? 4u : 0);
    return PassMethod(std::move(record), [=] { return ObjectOf(self).SetBackupState(); });
}

HResult KK_CALL GatherWriterMetadata(kk::VssBackupComponents* self, kk::VssAsync** async)
{
    return PassMethod(RecordOf("IVssBackupComponents::GatherWriterMetadata"),
                      [=] { return ObjectOf(self).GatherWriterMetadata(async); });
}

HResult KK_CALL PrepareForBackup(kk::VssBackupComponents* self, kk::VssAsync** async)
{
    return PassMethod(RecordOf("IVssBackupComponents::PrepareForBackup"),
                      [=] { return ObjectOf(self).PrepareForBackup(async); });
}

HResult KK_CALL SetContext(kk::VssBackupComponents* self, int32_t context)
{
    CallRecord record = RecordOf("IVssBackupComponents::SetContext");
    record.code = static_cast<uint32_t>(context);
    return PassMethod(std::move(record), [=] { return ObjectOf(self).SetContext(context); });
}

HResult KK_CALL StartSnapshotSet(kk::VssBackupComponents* self, kk::Guid* setId)
{
    CallRecord record = RecordOf("IVssBackupComponents::StartSnapshotSet");
    if (setId != nullptr) {
        record.input = BytesOf(*setId);
    }
    return PassMethod(std::move(record), [=] { return ObjectOf(self).StartSnapshotSet(setId); });
}

HResult KK_CALL AddToSnapshotSet(kk::VssBackupComponents* self, const char16_t* volumeName, kk::Guid providerId,
                                 kk::Guid* snapshotId)
{
    CallRecord record = RecordOf("IVssBackupComponents::AddToSnapshotSet");
    record.object = Utf8(TextOf(volumeName));
    record.input = BytesOf(providerId);
    return PassMethod(std::move(record),
                      [&] { return ObjectOf(self).AddToSnapshotSet(volumeName, providerId, snapshotId); });
}

HResult KK_CALL DoSnapshotSet(kk::VssBackupComponents* self, kk::VssAsync** async)
{
    return PassMethod(RecordOf("IVssBackupComponents::DoSnapshotSet"),
                      [=] { return ObjectOf(self).DoSnapshotSet(async); });
}

HResult KK_CALL GetSnapshotProperties(kk::VssBackupComponents* self, kk::Guid snapshotId,
                                      kk::VssSnapshotProperties* properties)
{
    CallRecord record = RecordOf("IVssBackupComponents::GetSnapshotProperties");
    record.object = VolumeName(self, snapshotId);
    record.input = BytesOf(snapshotId);
    return PassMethod(std::move(record), [&] { return ObjectOf(self).GetSnapshotProperties(snapshotId, properties); });
}

// vssapi.dll and ole32.dll.

HResult KK_CALL CreateVssBackupComponentsInternal(kk::VssBackupComponents** components)
{
    return PassMethod(RecordOf("CreateVssBackupComponentsInternal"),
                      [=] { return SnapshotService::Current().CreateComponents(components); });
}

void KK_CALL VssFreeSnapshotProperties(kk::VssSnapshotProperties* properties)
{
    PassGate(Machine::Current(), {.kind = CallKind::Release, .name = "VssFreeSnapshotProperties", .object = {}},
             [=](CallRecord&) { SnapshotService::Current().FreeProperties(properties); });
}

HResult KK_CALL CoInitializeEx(void* reserved, uint32_t flags)
{
    CallRecord record = RecordOf("CoInitializeEx");
    record.options = flags;
    return PassMethod(std::move(record),
                      [=] { return SnapshotService::Current().apartments.Initialize(reserved, flags); });
}

void KK_CALL CoUninitialize()
{
    PassGate(Machine::Current(), {.kind = CallKind::Release, .name = "CoUninitialize", .object = {}},
             [](CallRecord&) { SnapshotService::Current().Uninitialize(); });
}

HResult KK_CALL CoInitializeSecurity(void* securityDescriptor, int32_t authServiceCount, void* authServices,
                                     void* reserved1, uint32_t authnLevel, uint32_t impersonationLevel, void* authList,
                                     uint32_t capabilities, void* reserved3)
{
    CallRecord record = RecordOf("CoInitializeSecurity");
    record.code = authnLevel;
    record.options = impersonationLevel;
    record.access = capabilities;
    record.input = BytesOf(authServiceCount);
    const bool anyPointer = securityDescriptor != nullptr || authServices != nullptr || reserved1 != nullptr ||
                            authList != nullptr || reserved3 != nullptr;
    return PassMethod(std::move(record), [=] {
        return anyPointer ? kInvalidArgument : SnapshotService::Current().apartments.InitializeSecurity();
    });
}

/// The table has no type for the slots that the library leaves alone.
template <typename Function>
kk::UnusedMethod Untyped(Function* function)
{
    return reinterpret_cast<kk::UnusedMethod>(function);
}

}  // namespace

const kk::VssAsyncVtable& AsyncMethods()
{
    static const kk::VssAsyncVtable table = [] {
        auto methods = MakeTrapTable<ComTable::Async, kk::VssAsyncVtable>();
        methods.addRef = Untyped(&AsyncAddRef);
        methods.release = &AsyncRelease;
        methods.wait = &AsyncWait;
        methods.queryStatus = &AsyncQueryStatus;
        return methods;
    }();
    return table;
}

const kk::VssBackupComponentsVtable& BackupComponentsMethods()
{
    static const kk::VssBackupComponentsVtable table = [] {
        auto methods = MakeTrapTable<ComTable::BackupComponents, kk::VssBackupComponentsVtable>();
        methods.addRef = Untyped(&AddRef);
        methods.release = &Release;
        methods.initializeForBackup = &InitializeForBackup;
        methods.setBackupState = &SetBackupState;
        methods.gatherWriterMetadata = &GatherWriterMetadata;
        methods.prepareForBackup = &PrepareForBackup;
        methods.setContext = &SetContext;
        methods.startSnapshotSet = &StartSnapshotSet;
        methods.addToSnapshotSet = &AddToSnapshotSet;
        methods.doSnapshotSet = &DoSnapshotSet;
        methods.getSnapshotProperties = &GetSnapshotProperties;
        return methods;
    }();
    return table;
}

const kk::VssAsyncVtable& ReleasedAsyncMethods()
{
    static const auto table = MakeTrapTable<ComTable::ReleasedAsync, kk::VssAsyncVtable>();
    return table;
}

const kk::VssBackupComponentsVtable& ReleasedBackupComponentsMethods()
{
    static const auto table = MakeTrapTable<ComTable::ReleasedBackupComponents, kk::VssBackupComponentsVtable>();
    return table;
}

void ReportTrappedCall(ComTable table, size_t slot)
{
    static constexpr const char* kCulprits[] = {
        "an unexpected method of IVssBackupComponents", "an unexpected method of IVssAsync",
        "a method of a released IVssBackupComponents", "a method of a released IVssAsync"};
    Machine::Current().Report(std::string("call of ") + kCulprits[static_cast<size_t>(table)] + ", slot " +
                              std::to_string(slot));
}

SnapshotService& InstallSnapshotService(Machine& machine)
{
    const auto service = std::make_shared<SnapshotService>(machine);
    machine.AddBalanceCheck([service] { return service->Imbalances(); });
    machine.modules.Add(u"vssapi.dll",
                        {{"CreateVssBackupComponentsInternal", EntryAddress(&CreateVssBackupComponentsInternal)},
                         {"VssFreeSnapshotProperties", EntryAddress(&VssFreeSnapshotProperties)}});
    machine.modules.Add(u"ole32.dll", {{"CoInitializeEx", EntryAddress(&CoInitializeEx)},
                                       {"CoUninitialize", EntryAddress(&CoUninitialize)},
                                       {"CoInitializeSecurity", EntryAddress(&CoInitializeSecurity)}});
    return *service;
}

}  // namespace machine
