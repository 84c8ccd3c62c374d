#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace machine {

enum class CallKind {
    CreateFile,
    ReadFile,
    WriteFile,
    Close,
    DeviceControl,
    FsControl,
    QueryInformation,
    QueryVolumeInformation,
    Flush,
    Time,
    Random,
    UnicodeToUtf8,
    Allocate,
    Free,
    LoadLibrary,
    GetProcedure,
    Win32Error,  // an entry point bound at run time that answers with a Win32 error number
    Win32Bool,   // one that answers with a number of which 0 means failure
    Win32Wait,   // a wait, which fails with 0xFFFFFFFF
    Privileged,  // asks for a privilege, or for something that needs one
    ComMethod,   // one, or a method of an object, that answers with an HRESULT
    Release,     // one that gives something back and cannot fail: IUnknown::Release, CoUninitialize, ...
};

/// One call that the machine received: what it asked for and how it ended.
struct CallRecord {
    uint64_t index = 0;
    CallKind kind = CallKind::Release;
    std::string name;    // "NtReadFile", "CreateVirtualDisk", "IVssAsync::Wait"
    std::string object;  // the NT name behind the handle, the name to open, the library or entry point, the path
    uint32_t code = 0;   // control code, information class, privilege or action
    uint64_t offset = 0;
    uint64_t length = 0;  // bytes to transfer or to allocate, room for an answer, milliseconds to wait
    uint32_t access = 0;
    uint32_t share = 0;
    uint32_t disposition = 0;
    uint32_t options = 0;  // of an open; flags of other calls
    uint32_t fileAttributes = 0;
    uint32_t objectAttributes = 0;    // the flags of OBJECT_ATTRIBUTES
    std::vector<uint8_t> input = {};  // what a control request sends, up to a few KiB; another call's main record
    uint32_t result = 0;              // status, Win32 error, HRESULT; 1 or 0 for a pointer or truth value
    uint64_t information = 0;
    uint64_t enteredNs = 0;  // on a clock that never goes back
    uint64_t leftNs = 0;
    bool struck = false;                                 // a fault decided the result or the length
    std::optional<uint64_t> shortenedTo = std::nullopt;  // a fault lets the transfer move only so many bytes
};

/// Which calls are meant. Every part that is left out fits all calls.
struct CallPattern {
    std::optional<CallKind> kind = std::nullopt;
    std::string name = {};    // the whole name
    std::string object = {};  // a part of the object's name, in the same case
    std::optional<uint32_t> code = std::nullopt;

    bool Matches(const CallRecord& record) const;
};

/// Whether calls of this kind may be failed by their number alone. Those that cannot fail on a real system may not.
bool IsFaultable(CallKind kind);

/// How a call of this kind fails when nothing else was asked for: a status, an error number, an HRESULT, or 0.
uint32_t NaturalFailure(CallKind kind);

}  // namespace machine
