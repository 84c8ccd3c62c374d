#include "machine/faults.h"

#include <utility>

namespace machine {

void Faults::Fail(CallPattern pattern, uint64_t nth, uint32_t result)
{
    orders_.push_back({std::move(pattern), nth, false, {.result = result}});
}

void Faults::FailFrom(CallPattern pattern, uint64_t nth, uint32_t result)
{
    orders_.push_back({std::move(pattern), nth, true, {.result = result}});
}

void Faults::Shorten(CallPattern pattern, uint64_t nth, uint64_t bytes)
{
    orders_.push_back({std::move(pattern), nth, false, {.shortenedTo = bytes}});
}

void Faults::Delay(CallPattern pattern, uint64_t nth, int64_t hundredNanoseconds)
{
    orders_.push_back({std::move(pattern), nth, false, {.delay = hundredNanoseconds}});
}

void Faults::FailCall(uint64_t n)
{
    failingCall_ = n;
    laterCallsToo_ = false;
    faultableCalls_ = 0;
    struck_.reset();
}

void Faults::FailCallsFrom(uint64_t n)
{
    FailCall(n);
    laterCallsToo_ = true;
}

void Faults::Clear()
{
    *this = Faults();
}

Faults::Verdict Faults::Judge(const CallRecord& record)
{
    Verdict verdict;
    for (Order& order : orders_) {
        if (!order.pattern.Matches(record)) {
            continue;
        }
        ++order.seen;
        if (order.seen != order.nth && !(order.andLater && order.seen > order.nth)) {
            continue;
        }
        verdict.delay += order.verdict.delay;
        verdict.result = verdict.result ? verdict.result : order.verdict.result;
        verdict.shortenedTo = verdict.shortenedTo ? verdict.shortenedTo : order.verdict.shortenedTo;
    }
    if (IsFaultable(record.kind)) {
        ++faultableCalls_;
        const bool due = failingCall_ != 0 &&
                         (faultableCalls_ == failingCall_ || (laterCallsToo_ && faultableCalls_ > failingCall_));
        if (due && !verdict.result) {
            verdict.result = NaturalFailure(record.kind);
        }
    }
    return verdict;
}

}  // namespace machine
