#include "support/sweep.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

#include "support/forked_run.h"

namespace {

constexpr uint64_t kCallLimit = 20000;
constexpr int kFailuresToShow = 5;
constexpr int kFaultWasMet = 0;
constexpr int kFaultWasNotMet = 2;

std::string Describe(uint64_t n, const machine::CallRecord* failed)
{
    std::ostringstream text;
    text << "with call " << n << " failing: ";
    if (failed != nullptr) {
        text << *failed;
    }
    return std::move(text).str();
}

}  // namespace

uint64_t SweepFailingCalls(machine::Machine& machine, FaultMode mode, const std::function<int32_t()>& operation,
                           const std::function<void(const machine::CallRecord* failed, int32_t status)>& check)
{
    int failures = 0;
    for (uint64_t n = 1; n < kCallLimit; ++n) {
        const int answer = RunForked([&] {
            machine.journal.Clear();
            if (mode == FaultMode::OneCall) {
                machine.faults.FailCall(n);
            } else {
                machine.faults.FailCallsFrom(n);
            }
            const int32_t status = operation();
            const machine::CallRecord* const failed = machine.faults.Struck();
            SCOPED_TRACE(Describe(n, failed));
            EXPECT_EQ(machine.Imbalances(), std::vector<std::string>{});
            check(failed, status);
            return failed != nullptr ? kFaultWasMet : kFaultWasNotMet;
        });
        if (answer == kFaultWasNotMet) {
            return n - 1;
        }
        if (answer != kFaultWasMet) {
            ADD_FAILURE() << "the run with call " << n << " failing ended with " << answer;
            if (++failures == kFailuresToShow) {
                break;
            }
        }
    }
    ADD_FAILURE() << "the sweep did not come to its end";
    return 0;
}

uint64_t CallsBefore(const machine::Journal& journal, const machine::CallRecord& failed,
                     const machine::CallPattern& pattern)
{
    const std::vector<machine::CallRecord> calls = journal.FindAll(pattern);
    return static_cast<uint64_t>(
        std::ranges::count_if(calls, [&](const machine::CallRecord& call) { return call.index < failed.index; }));
}

int32_t FirstDebt(const machine::Journal& journal, const std::function<int32_t(const machine::CallRecord&)>& owed)
{
    for (const machine::CallRecord& call : journal.Records()) {
        if (const int32_t debt = call.struck ? owed(call) : 0; debt != 0) {
            return debt;
        }
    }
    return 0;
}
