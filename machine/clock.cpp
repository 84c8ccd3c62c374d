#include "machine/clock.h"

#include <chrono>

namespace machine {

int64_t Clock::Query()
{
    const int64_t answer = now_;
    now_ += tick_;
    return answer;
}

kk::TimeFields FieldsOfTime(int64_t hundredNanoseconds)
{
    using namespace std::chrono;
    constexpr int64_t kMillisecond = 10'000;
    constexpr int64_t kDayMs = 86'400'000;
    const int64_t milliseconds = hundredNanoseconds / kMillisecond;
    const sys_days epoch = year(1601) / January / 1;
    const sys_days date = epoch + days(milliseconds / kDayMs);
    const year_month_day day = date;
    const int64_t ofDay = milliseconds % kDayMs;

    kk::TimeFields fields = {};
    fields.year = static_cast<int16_t>(static_cast<int>(day.year()));
    fields.month = static_cast<int16_t>(static_cast<unsigned>(day.month()));
    fields.day = static_cast<int16_t>(static_cast<unsigned>(day.day()));
    fields.hour = static_cast<int16_t>(ofDay / 3'600'000);
    fields.minute = static_cast<int16_t>(ofDay / 60'000 % 60);
    fields.second = static_cast<int16_t>(ofDay / 1000 % 60);
    fields.milliseconds = static_cast<int16_t>(ofDay % 1000);
    fields.weekday = static_cast<int16_t>(weekday(date).c_encoding());
    return fields;
}

}  // namespace machine
