#include "core/byte_buffer.h"

#include "core/checked_math.h"
#include "core/memory.h"

namespace kk {

ByteBuffer::~ByteBuffer()
{
    MemFree(data_);
}

bool ByteBuffer::Reserve(uint64_t needed)
{
    if (needed <= capacity_) {
        return true;
    }
    const uint64_t capacity = Max(needed, capacity_ == 0 ? uint64_t{8} : SaturatingMultiply(capacity_, 2));
    auto* data = static_cast<uint8_t*>(MemAlloc(capacity));
    if (data == nullptr) {
        return false;
    }
    if (length_ > 0) {
        CopyBytes(data, data_, length_);
    }
    MemFree(data_);
    data_ = data;
    capacity_ = capacity;
    return true;
}

bool ByteBuffer::Resize(uint64_t length)
{
    if (length > length_) {
        if (!Reserve(length)) {
            return false;
        }
        ZeroBytes(data_ + length_, length - length_);
    }
    length_ = length;
    return true;
}

bool ByteBuffer::Append(uint8_t byte)
{
    if (!Reserve(length_ + 1)) {
        return false;
    }
    data_[length_++] = byte;
    return true;
}

}  // namespace kk
