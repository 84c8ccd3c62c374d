#pragma once

#include <cstdint>
#include <utility>

#include "core/nt_types.h"

namespace kk {

/// Sole owner of a native handle; null is "none".
class HandleOwner {
public:
    HandleOwner() = default;
    explicit HandleOwner(NtHandle handle) : handle_(handle) {}
    HandleOwner(HandleOwner&& other) noexcept : handle_(other.Release()) {}
    HandleOwner(const HandleOwner&) = delete;
    HandleOwner& operator=(const HandleOwner&) = delete;
    ~HandleOwner();

    [[nodiscard]] NtHandle Get() const { return handle_; }
    [[nodiscard]] NtHandle Release() { return std::exchange(handle_, nullptr); }

private:
    NtHandle handle_ = nullptr;
};

/// How a file is opened; everything else is the same for all of the library's opens.
struct OpenMode {
    uint32_t access;
    uint32_t share;
    uint32_t disposition;
    uint32_t options;
};

/// Opens an existing file, disk or volume for reading while others read and write it, without the random-access hint.
inline constexpr OpenMode kOpenToQuery = {kFileGenericRead, kFileShareRead | kFileShareWrite, kFileOpen,
                                          kFileNonDirectoryFile | kFileSynchronousIoNonalert};

/// Opens or creates what `path` names (see ToNtPath). On success the caller owns `handle`.
[[nodiscard]] KK_STATUS OpenNativeFile(const char16_t* path, const OpenMode& mode, NtHandle& handle);

/// Creates or replaces the file `path` with `length` bytes, in one write without a retry. A short write is a
/// success, on purpose: what is written here is a convenience, and nobody would read it on.
[[nodiscard]] KK_STATUS WriteNewFile(const char16_t* path, const void* data, uint32_t length);

}  // namespace kk
