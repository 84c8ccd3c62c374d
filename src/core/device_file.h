#pragma once

#include <cstddef>
#include <cstdint>

#include "kestrelkit/kestrelkit.h"

namespace kk {

/// An opened file, disk, volume or control device. Not shared between threads.
class DeviceFile {
public:
    DeviceFile(const DeviceFile&) = delete;
    DeviceFile& operator=(const DeviceFile&) = delete;

    /// Ends the object; frees its memory too when `freeObject` is set. One slot in the place of a virtual destructor,
    /// which would take one slot or two depending on the compiler.
    virtual void Destroy(bool freeObject);

    /// Fills all `length` bytes from byte `offset`. KK_STATUS_END_OF_FILE when they are not all there; the bytes before
    /// the end were read then. KK_STATUS_INVALID_PARAMETER, here and for writing, when they reach past INT64_MAX.
    [[nodiscard]] virtual KK_STATUS ReadAt(uint64_t offset, void* buffer, uint32_t length);

    /// Writes all `length` bytes at byte `offset`. KK_STATUS_UNSUCCESSFUL when the device stops accepting them.
    [[nodiscard]] virtual KK_STATUS WriteAt(uint64_t offset, const void* buffer, uint32_t length);

    /// Sends a control request. `returned`, when given, receives the bytes of the answer, also when the request failed.
    /// Warnings, such as "the answer did not fit", count as failures; every success is 0.
    [[nodiscard]] virtual KK_STATUS Control(uint32_t code, const void* input, uint32_t inputLength, void* output,
                                            uint32_t outputLength, uint32_t* returned);

    /// The size in bytes, 0 when it cannot be learnt. Always succeeds.
    virtual KK_STATUS QuerySize(uint64_t* size);

    [[nodiscard]] virtual KK_STATUS Flush();

protected:
    DeviceFile() = default;
    ~DeviceFile() = default;
};

/// Sole owner of a DeviceFile.
class DevicePtr {
public:
    DevicePtr() = default;
    DevicePtr(const DevicePtr&) = delete;
    DevicePtr& operator=(const DevicePtr&) = delete;
    ~DevicePtr() { Reset(); }

    void Reset()
    {
        if (file_ != nullptr) {
            file_->Destroy(true);
            file_ = nullptr;
        }
    }

    /// Where an opener puts the object; ends the one held so far.
    [[nodiscard]] DeviceFile** Receive()
    {
        Reset();
        return &file_;
    }

    DeviceFile* operator->() const { return file_; }
    DeviceFile& operator*() const { return *file_; }
    explicit operator bool() const { return file_ != nullptr; }

private:
    DeviceFile* file_ = nullptr;
};

}  // namespace kk
