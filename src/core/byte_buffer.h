#pragma once

#include <cstddef>
#include <cstdint>

namespace kk {

/// A growable run of bytes on the process heap. Grows to the larger of what is needed and twice what it has, 8 bytes
/// at first; never shrinks.
class ByteBuffer {
public:
    ByteBuffer() = default;
    ByteBuffer(const ByteBuffer&) = delete;
    ByteBuffer& operator=(const ByteBuffer&) = delete;
    ~ByteBuffer();

    /// Makes room for `needed` bytes in all. False when memory ran out; nothing has changed then.
    [[nodiscard]] bool Reserve(uint64_t needed);

    /// Sets the used length; bytes that this adds are zero. False when memory ran out; nothing has changed then.
    [[nodiscard]] bool Resize(uint64_t length);

    /// Adds one byte. False when memory ran out; nothing has changed then.
    [[nodiscard]] bool Append(uint8_t byte);

    [[nodiscard]] uint8_t* Data() { return data_; }
    [[nodiscard]] const uint8_t* Data() const { return data_; }
    [[nodiscard]] uint64_t Length() const { return length_; }
    [[nodiscard]] uint64_t Capacity() const { return capacity_; }

private:
    uint8_t* data_ = nullptr;
    uint64_t length_ = 0;
    uint64_t capacity_ = 0;
};

}  // namespace kk
