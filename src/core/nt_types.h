#pragma once

#include <cstddef>
#include <cstdint>

#include "kestrelkit/kestrelkit.h"

// The native system's records and constants that the foundation uses, as the Windows SDK and WDK publish them.
// They are declared here because the SDK's headers compile on Windows only.

namespace kk {

using NtHandle = void*;

/// IO_STATUS_BLOCK.
struct IoStatusBlock {
    union {
        void* pointer;  // first, so that {} zeroes all eight bytes
        KK_STATUS status;
    };
    uint64_t information;
};
static_assert(sizeof(IoStatusBlock) == 16 && offsetof(IoStatusBlock, information) == 8);

/// UNICODE_STRING. Lengths are bytes and leave the terminator out.
struct UnicodeString {
    uint16_t length;
    uint16_t maximumLength;
    const char16_t* buffer;
};
static_assert(sizeof(UnicodeString) == 16 && offsetof(UnicodeString, buffer) == 8);

/// ANSI_STRING.
struct AnsiString {
    uint16_t length;
    uint16_t maximumLength;
    const char* buffer;
};
static_assert(sizeof(AnsiString) == 16 && offsetof(AnsiString, buffer) == 8);

/// OBJECT_ATTRIBUTES.
struct ObjectAttributes {
    uint32_t length;
    NtHandle rootDirectory;
    const UnicodeString* objectName;
    uint32_t attributes;
    void* securityDescriptor;
    void* securityQualityOfService;
};
static_assert(sizeof(ObjectAttributes) == 48 && offsetof(ObjectAttributes, objectName) == 16);
static_assert(offsetof(ObjectAttributes, attributes) == 24);

inline constexpr uint32_t kObjCaseInsensitive = 0x40;

/// TIME_FIELDS.
struct TimeFields {
    int16_t year;
    int16_t month;
    int16_t day;
    int16_t hour;
    int16_t minute;
    int16_t second;
    int16_t milliseconds;
    int16_t weekday;
};
static_assert(sizeof(TimeFields) == 16);

/// FILE_STANDARD_INFORMATION.
struct FileStandardInformation {
    int64_t allocationSize;
    int64_t endOfFile;
    uint32_t numberOfLinks;
    uint8_t deletePending;
    uint8_t directory;
};
static_assert(sizeof(FileStandardInformation) == 24 && offsetof(FileStandardInformation, endOfFile) == 8);

inline constexpr uint32_t kFileStandardInformationClass = 5;

/// GET_LENGTH_INFORMATION, the answer of IOCTL_DISK_GET_LENGTH_INFO.
struct GetLengthInformation {
    int64_t length;
};
static_assert(sizeof(GetLengthInformation) == 8);

inline constexpr uint32_t kIoctlDiskGetLengthInfo = 0x7405C;

/// Device type in bits 16 to 31 of the control codes that file systems answer.
inline constexpr uint32_t kFileDeviceFileSystem = 9;

inline constexpr uint32_t kFileGenericRead = 0x120089;
inline constexpr uint32_t kFileGenericWrite = 0x120116;
inline constexpr uint32_t kFileReadAttributes = 0x80;
inline constexpr uint32_t kDelete = 0x10000;
inline constexpr uint32_t kSynchronize = 0x100000;
inline constexpr uint32_t kFileAttributeNormal = 0x80;
inline constexpr uint32_t kFileShareRead = 1;
inline constexpr uint32_t kFileShareWrite = 2;
inline constexpr uint32_t kFileShareDelete = 4;
inline constexpr uint32_t kFileOpen = 1;
inline constexpr uint32_t kFileOverwriteIf = 5;
inline constexpr uint32_t kFileSynchronousIoNonalert = 0x20;
inline constexpr uint32_t kFileNonDirectoryFile = 0x40;
inline constexpr uint32_t kFileRandomAccess = 0x800;
inline constexpr uint32_t kFileDeleteOnClose = 0x1000;

inline constexpr uint32_t kSeShutdownPrivilege = 19;
/// ShutdownReboot of SHUTDOWN_ACTION.
inline constexpr uint32_t kShutdownReboot = 1;

/// The part of the process environment block that leads to the default heap.
struct ProcessEnvironmentBlock {
    uint8_t untouched[0x30];
    void* processHeap;
};
static_assert(offsetof(ProcessEnvironmentBlock, processHeap) == 0x30);

/// Offset of the process environment block's address in the thread block, which the gs segment holds.
inline constexpr uint32_t kThreadBlockPebOffset = 0x60;

}  // namespace kk
