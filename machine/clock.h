#pragma once

#include <cstdint>

#include "core/nt_types.h"

namespace machine {

/// The machine's time of day, in 100-nanosecond units since 1601. Stands still unless it is told to tick.
class Clock {
public:
    void SetTime(int64_t hundredNanoseconds) { now_ = hundredNanoseconds; }
    /// Every query moves the clock on by so much, after answering.
    void SetTick(int64_t hundredNanoseconds) { tick_ = hundredNanoseconds; }
    void Advance(int64_t hundredNanoseconds) { now_ += hundredNanoseconds; }

    int64_t Now() const { return now_; }
    int64_t Query();

private:
    int64_t now_ = 133'500'000'000'000'000;  // 2024-01-17 21:20:00
    int64_t tick_ = 0;
};

/// The fields of a time, as RtlTimeToTimeFields gives them.
kk::TimeFields FieldsOfTime(int64_t hundredNanoseconds);

}  // namespace machine
