#pragma once

#include <cstdint>

#include "core/nt_types.h"
#include "disk/volume_controls.h"

// Statuses, error numbers and control codes of the system that the machine answers with and the library does not name.

namespace machine {

using Status = KK_STATUS;

constexpr Status AsStatus(uint32_t value)
{
    return static_cast<Status>(value);
}

inline constexpr Status kSuccess = 0;
inline constexpr Status kSomeNotMapped = 0x107;
inline constexpr Status kBufferOverflow = AsStatus(0x80000005);
inline constexpr Status kInvalidInfoClass = AsStatus(0xC0000003);
inline constexpr Status kInfoLengthMismatch = AsStatus(0xC0000004);
inline constexpr Status kAccessViolation = AsStatus(0xC0000005);
inline constexpr Status kInvalidHandle = AsStatus(0xC0000008);
inline constexpr Status kInvalidParameter = AsStatus(0xC000000D);
inline constexpr Status kNoSuchDevice = AsStatus(0xC000000E);
inline constexpr Status kInvalidDeviceRequest = AsStatus(0xC0000010);
inline constexpr Status kEndOfFile = AsStatus(0xC0000011);
inline constexpr Status kNoMediaInDevice = AsStatus(0xC0000013);
inline constexpr Status kNonexistentSector = AsStatus(0xC0000015);
inline constexpr Status kAlreadyCommitted = AsStatus(0xC0000021);
inline constexpr Status kAccessDenied = AsStatus(0xC0000022);
inline constexpr Status kBufferTooSmall = AsStatus(0xC0000023);
inline constexpr Status kNotLocked = AsStatus(0xC000002A);
inline constexpr Status kDiskCorruptError = AsStatus(0xC0000032);
inline constexpr Status kObjectNameInvalid = AsStatus(0xC0000033);
inline constexpr Status kObjectNameNotFound = AsStatus(0xC0000034);
inline constexpr Status kObjectNameCollision = AsStatus(0xC0000035);
inline constexpr Status kObjectPathNotFound = AsStatus(0xC000003A);
inline constexpr Status kObjectPathSyntaxBad = AsStatus(0xC000003B);
inline constexpr Status kSharingViolation = AsStatus(0xC0000043);
inline constexpr Status kDeletePending = AsStatus(0xC0000056);
inline constexpr Status kPrivilegeNotHeld = AsStatus(0xC0000061);
inline constexpr Status kNoToken = AsStatus(0xC000007C);
inline constexpr Status kEntryPointMissing = AsStatus(0xC0000139);
inline constexpr Status kDllNotFound = AsStatus(0xC0000135);
inline constexpr Status kDiskFull = AsStatus(0xC000007F);
inline constexpr Status kMediaWriteProtected = AsStatus(0xC00000A2);
inline constexpr Status kFileIsADirectory = AsStatus(0xC00000BA);
inline constexpr Status kNotSupported = AsStatus(0xC00000BB);
inline constexpr Status kIoDeviceError = AsStatus(0xC0000185);
inline constexpr Status kUnexpectedIoError = AsStatus(0xC00000E9);
inline constexpr Status kNotADirectory = AsStatus(0xC0000103);
inline constexpr Status kVolumeDismounted = AsStatus(0xC000026E);

/// Neither a success nor a warning: a request that ends so gives nothing back but the status itself.
constexpr bool IsError(Status status)
{
    return (static_cast<uint32_t>(status) >> 30) == 3;
}

inline constexpr uint32_t kErrorGenFailure = 31;
inline constexpr uint32_t kWaitFailed = 0xFFFFFFFF;
inline constexpr int32_t kErrorUnexpected = AsStatus(0x8000FFFF);  // E_UNEXPECTED

inline constexpr uint32_t kFsctlUnlockVolume = 0x9001C;
inline constexpr kk::ShrinkRequest kShrinkAbort{3};

inline constexpr uint32_t kShutdownPrivilege = 19;

inline constexpr uint32_t kFileReadData = 0x1;
inline constexpr uint32_t kFileWriteData = 0x2;
inline constexpr uint32_t kFileAppendData = 0x4;
inline constexpr uint32_t kDelete = 0x10000;
inline constexpr uint32_t kSynchronize = 0x100000;
inline constexpr uint32_t kGenericAll = 0x10000000;
inline constexpr uint32_t kGenericWrite = 0x40000000;
inline constexpr uint32_t kGenericRead = 0x80000000;
inline constexpr uint32_t kFileAllAccess = 0x1F01FF;

inline constexpr uint32_t kFileShareDelete = 4;

inline constexpr uint32_t kFileSupersede = 0;
inline constexpr uint32_t kFileCreate = 2;
inline constexpr uint32_t kFileOpenIf = 3;
inline constexpr uint32_t kFileOverwrite = 4;

inline constexpr uint32_t kFileDirectoryFile = 0x1;
inline constexpr uint32_t kFileSynchronousIoAlert = 0x10;
inline constexpr uint32_t kFileDeleteOnClose = 0x1000;

inline constexpr uint64_t kInformationSuperseded = 0;
inline constexpr uint64_t kInformationOpened = 1;
inline constexpr uint64_t kInformationCreated = 2;
inline constexpr uint64_t kInformationOverwritten = 3;

}  // namespace machine
