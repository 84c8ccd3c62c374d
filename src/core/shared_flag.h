#pragma once

#include <cstdint>

// What threads share without a lock. The built-in functions of GCC and Clang compile to plain instructions here and
// need no run-time; they keep compiler and processor from letting another thread see things in another order.

namespace kk {

/// A byte that is 0 or 1. Who sees it set also sees what the thread that set it had written before.
class SharedFlag {
public:
    bool IsSet() const { return __atomic_load_n(&value_, __ATOMIC_ACQUIRE) != 0; }
    void Set() { __atomic_store_n(&value_, uint8_t{1}, __ATOMIC_RELEASE); }
    /// Sets it; true for the one caller, of all threads, that found it clear.
    [[nodiscard]] bool SetFirst() { return __atomic_exchange_n(&value_, uint8_t{1}, __ATOMIC_ACQ_REL) == 0; }

private:
    uint8_t value_ = 0;
};
static_assert(sizeof(SharedFlag) == 1);

/// A pointer or number that some other thread may be publishing; with it come the writes before PublishShared.
template <typename T>
[[nodiscard]] T LoadShared(const T& place)
{
    return __atomic_load_n(&place, __ATOMIC_ACQUIRE);
}

template <typename T>
void PublishShared(T& place, T value)
{
    __atomic_store_n(&place, value, __ATOMIC_RELEASE);
}

/// Publishes unless the place holds something already: of several threads that publish at once one does.
template <typename T>
void PublishSharedOnce(T& place, T value)
{
    T none = {};
    (void)__atomic_compare_exchange_n(&place, &none, value, false, __ATOMIC_ACQ_REL, __ATOMIC_ACQUIRE);
}

}  // namespace kk
