#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "core/memory.h"

namespace kk {

/// A growable list of plain records on the process heap: room for 8 at first, twice the room whenever it is full.
template <typename T>
class Array {
public:
    static_assert(std::is_trivially_copyable_v<T>);

    Array() = default;
    Array(const Array&) = delete;
    Array& operator=(const Array&) = delete;
    ~Array() { MemFree(items_); }

    /// Adds a copy of `item`, which must not lie in this list. False when memory ran out; the list is then as before.
    [[nodiscard]] bool Append(const T& item)
    {
        if (count_ == capacity_ && !Grow()) {
            return false;
        }
        items_[count_++] = item;
        return true;
    }

    /// Drops all records and keeps their room.
    void Clear() { count_ = 0; }

    [[nodiscard]] size_t Count() const { return count_; }
    T& operator[](size_t index) { return items_[index]; }
    const T& operator[](size_t index) const { return items_[index]; }
    T* begin() { return items_; }
    T* end() { return items_ + count_; }
    const T* begin() const { return items_; }
    const T* end() const { return items_ + count_; }

private:
    bool Grow()
    {
        const size_t capacity = capacity_ == 0 ? 8 : capacity_ * 2;
        auto* items = static_cast<T*>(MemAlloc(uint64_t{capacity} * sizeof(T)));
        if (items == nullptr) {
            return false;
        }
        if (count_ > 0) {
            CopyBytes(items, items_, count_ * sizeof(T));
        }
        MemFree(items_);
        items_ = items;
        capacity_ = capacity;
        return true;
    }

    T* items_ = nullptr;
    size_t count_ = 0;
    size_t capacity_ = 0;
};

}  // namespace kk
