#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

#include "machine/calls.h"

namespace machine {

/// Trouble on order. Calls are counted from the moment a fault is ordered, beginning with 1; a failing call does
/// nothing but fail. Orders stay until Clear.
class Faults {
public:
    /// The `nth` call that fits ends with `result` (a status, a Win32 error, an HRESULT; 0 for a null pointer).
    void Fail(CallPattern pattern, uint64_t nth, uint32_t result);

    /// The `nth` call that fits and all later ones.
    void FailFrom(CallPattern pattern, uint64_t nth, uint32_t result);

    /// The `nth` read or write that fits succeeds and moves only `bytes` bytes.
    void Shorten(CallPattern pattern, uint64_t nth, uint64_t bytes);

    /// The `nth` call that fits takes that long on the machine's clock.
    void Delay(CallPattern pattern, uint64_t nth, int64_t hundredNanoseconds);

    /// The `n`-th faultable call of any kind fails in the way natural to its kind. Restarts the count and replaces
    /// the order before.
    void FailCall(uint64_t n);

    /// The same for the `n`-th call and all later ones.
    void FailCallsFrom(uint64_t n);

    /// Faultable calls since the last FailCall, FailCallsFrom or Clear, failed ones included.
    uint64_t FaultableCalls() const { return faultableCalls_; }

    /// The call that was failed or shortened last, or null.
    const CallRecord* Struck() const { return struck_ ? &*struck_ : nullptr; }

    void Clear();

    /// What happens to one call.
    struct Verdict {
        std::optional<uint32_t> result = std::nullopt;
        std::optional<uint64_t> shortenedTo = std::nullopt;
        int64_t delay = 0;
    };
    Verdict Judge(const CallRecord& record);

    /// Remembers how a struck call ended.
    void NoteStruck(const CallRecord& record) { struck_ = record; }

private:
    struct Order {
        CallPattern pattern;
        uint64_t nth;
        bool andLater;
        Verdict verdict;
        uint64_t seen = 0;
    };

    std::vector<Order> orders_;
    uint64_t faultableCalls_ = 0;
    uint64_t failingCall_ = 0;
    bool laterCallsToo_ = false;
    std::optional<CallRecord> struck_;
};

}  // namespace machine
