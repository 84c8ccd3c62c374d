#pragma once

#include <cstddef>
#include <cstdint>

#include "core/memory.h"

namespace kk {

/// A zeroed heap block that frees itself.
class HeapBlock {
public:
    HeapBlock() = default;
    HeapBlock(const HeapBlock&) = delete;
    HeapBlock& operator=(const HeapBlock&) = delete;
    ~HeapBlock() { MemFree(data_); }

    /// Takes `size` zeroed bytes, once in the object's life. False when memory ran out.
    [[nodiscard]] bool Allocate(uint64_t size)
    {
        data_ = static_cast<uint8_t*>(MemAlloc(size));
        if (data_ == nullptr) {
            return false;
        }
        ZeroBytes(data_, size);
        return true;
    }

    [[nodiscard]] uint8_t* Data() const { return data_; }

private:
    uint8_t* data_ = nullptr;
};

}  // namespace kk
