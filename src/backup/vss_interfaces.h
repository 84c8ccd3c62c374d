#pragma once

#include <cstddef>
#include <cstdint>

#include "core/guid.h"
#include "core/nt_types.h"

// The volume snapshot service: interfaces and records of the Windows SDK's vss.h and vsbackup.h. Only the slots that
// are used have a type; the others are there to keep the published order.

namespace kk {

/// HRESULT; negative is failure. The snapshot service's results are passed on as statuses.
using HResult = int32_t;

inline constexpr HResult kRpcEChangedMode = static_cast<HResult>(0x80010106);
inline constexpr HResult kEFail = static_cast<HResult>(0x80004005);
inline constexpr uint32_t kCoinitMultithreaded = 0;
inline constexpr uint32_t kAuthnLevelPacketPrivacy = 6;
inline constexpr uint32_t kImpersonationLevelIdentify = 2;
inline constexpr uint32_t kAuthenticationCapabilitiesNone = 0;
inline constexpr uint32_t kInfinite = 0xFFFFFFFF;
inline constexpr uint32_t kVssBackupTypeFull = 1;
inline constexpr int32_t kVssContextBackup = 0;

using UnusedMethod = void (*)();

/// Byte offset of a method in its interface's table, by its number from 0.
consteval size_t Slot(size_t number)
{
    return number * sizeof(UnusedMethod);
}

struct VssAsync;

struct VssAsyncVtable {
    UnusedMethod queryInterface;
    UnusedMethod addRef;
    uint32_t(KK_CALL* release)(VssAsync* self);
    UnusedMethod cancel;
    HResult(KK_CALL* wait)(VssAsync* self, uint32_t milliseconds);
    HResult(KK_CALL* queryStatus)(VssAsync* self, HResult* result, int32_t* reserved);
};
static_assert(offsetof(VssAsyncVtable, release) == Slot(2) && offsetof(VssAsyncVtable, wait) == Slot(4));
static_assert(offsetof(VssAsyncVtable, queryStatus) == Slot(5) && sizeof(VssAsyncVtable) == Slot(6));

/// IVssAsync: an operation of the service that goes on in the background.
struct VssAsync {
    const VssAsyncVtable* methods;
};

/// VSS_SNAPSHOT_PROP. The strings belong to the service until VssFreeSnapshotProperties.
struct VssSnapshotProperties {
    Guid snapshotId;
    Guid snapshotSetId;
    int32_t snapshotsCount;
    char16_t* snapshotDeviceObject;
    char16_t* originalVolumeName;
    char16_t* originatingMachine;
    char16_t* serviceMachine;
    char16_t* exposedName;
    char16_t* exposedPath;
    Guid providerId;
    int32_t snapshotAttributes;
    int64_t creationTimestamp;
    uint32_t status;
};
static_assert(sizeof(VssSnapshotProperties) == 128);
static_assert(offsetof(VssSnapshotProperties, snapshotDeviceObject) == 40);

struct VssBackupComponents;

/// A GUID "by value" is 16 bytes, which this calling convention passes as the address of the caller's copy.
struct VssBackupComponentsVtable {
    UnusedMethod queryInterface;
    UnusedMethod addRef;
    uint32_t(KK_CALL* release)(VssBackupComponents* self);
    UnusedMethod slots3to4[2];
    HResult(KK_CALL* initializeForBackup)(VssBackupComponents* self, char16_t* xml);
    HResult(KK_CALL* setBackupState)(VssBackupComponents* self, bool selectComponents, bool bootableSystemState,
                                     uint32_t backupType, bool partialFileSupport);
    UnusedMethod slots7to8[2];
    HResult(KK_CALL* gatherWriterMetadata)(VssBackupComponents* self, VssAsync** async);
    UnusedMethod slots10to13[4];
    HResult(KK_CALL* prepareForBackup)(VssBackupComponents* self, VssAsync** async);
    UnusedMethod slots15to34[20];
    HResult(KK_CALL* setContext)(VssBackupComponents* self, int32_t context);
    HResult(KK_CALL* startSnapshotSet)(VssBackupComponents* self, Guid* setId);
    HResult(KK_CALL* addToSnapshotSet)(VssBackupComponents* self, const char16_t* volumeName, Guid providerId,
                                       Guid* snapshotId);
    HResult(KK_CALL* doSnapshotSet)(VssBackupComponents* self, VssAsync** async);
    UnusedMethod slots39to41[3];
    HResult(KK_CALL* getSnapshotProperties)(VssBackupComponents* self, Guid snapshotId,
                                            VssSnapshotProperties* properties);
    UnusedMethod slots43to50[8];
};
static_assert(offsetof(VssBackupComponentsVtable, release) == Slot(2));
static_assert(offsetof(VssBackupComponentsVtable, initializeForBackup) == Slot(5));
static_assert(offsetof(VssBackupComponentsVtable, setBackupState) == Slot(6));
static_assert(offsetof(VssBackupComponentsVtable, gatherWriterMetadata) == Slot(9));
static_assert(offsetof(VssBackupComponentsVtable, prepareForBackup) == Slot(14));
static_assert(offsetof(VssBackupComponentsVtable, setContext) == Slot(35));
static_assert(offsetof(VssBackupComponentsVtable, startSnapshotSet) == Slot(36));
static_assert(offsetof(VssBackupComponentsVtable, addToSnapshotSet) == Slot(37));
static_assert(offsetof(VssBackupComponentsVtable, doSnapshotSet) == Slot(38));
static_assert(offsetof(VssBackupComponentsVtable, getSnapshotProperties) == Slot(42));
static_assert(sizeof(VssBackupComponentsVtable) == Slot(51));

/// IVssBackupComponents.
struct VssBackupComponents {
    const VssBackupComponentsVtable* methods;
};

using CoInitializeExFn = HResult(KK_CALL*)(void* reserved, uint32_t flags);
using CoUninitializeFn = void(KK_CALL*)();
using CoInitializeSecurityFn = HResult(KK_CALL*)(void* securityDescriptor, int32_t authServiceCount, void* authServices,
                                                 void* reserved1, uint32_t authnLevel, uint32_t impersonationLevel,
                                                 void* authList, uint32_t capabilities, void* reserved3);
using CreateVssBackupComponentsInternalFn = HResult(KK_CALL*)(VssBackupComponents** components);
using VssFreeSnapshotPropertiesFn = void(KK_CALL*)(VssSnapshotProperties* properties);

}  // namespace kk
