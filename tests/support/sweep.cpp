#include "support/sweep.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <random>
#include <set>
#include <sstream>
#include <vector>

#include "support/forked_run.h"
#include "support/later_calls.h"

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

/// So many calls of an operation are failed together with others, three each.
constexpr uint64_t kFirstCallsOfPairs = 24;
constexpr uint64_t kSoon = 6;

bool AllPairs()
{
    return std::getenv("KK_ALL_PAIRS") != nullptr;
}

/// Of `count` calls some from each part, numbered from 1.
std::vector<uint64_t> FirstCalls(uint64_t count, std::mt19937_64& random)
{
    const uint64_t parts = AllPairs() ? count : std::min(count, kFirstCallsOfPairs);
    std::vector<uint64_t> numbers;
    for (uint64_t i = 0; i < parts; ++i) {
        const uint64_t start = i * count / parts;
        const uint64_t end = (i + 1) * count / parts;
        numbers.push_back(start + random() % (end - start) + 1);
    }
    return numbers;
}

/// Of `count` later calls those to fail too, numbered from 0.
std::set<uint64_t> SecondCalls(uint64_t count, std::mt19937_64& random)
{
    std::set<uint64_t> numbers;
    for (uint64_t i = 0; AllPairs() && i < count; ++i) {
        numbers.insert(i);
    }
    if (count != 0) {
        numbers.insert({0, random() % std::min(count, kSoon), random() % count});
    }
    return numbers;
}

std::string DescribePair(const machine::Journal& journal)
{
    std::ostringstream text;
    text << "with these failing:";
    for (const machine::CallRecord& call : journal.Records()) {
        if (call.struck) {
            text << " " << call;
        }
    }
    return std::move(text).str();
}

int RunPair(machine::Machine& machine, uint64_t first, const LaterCall& second,
            const std::function<int32_t()>& operation,
            const std::function<void(const machine::CallRecord* failed, int32_t status)>& check)
{
    return RunForked([&] {
        machine.journal.Clear();
        machine.faults.FailCall(first);
        machine.faults.Fail({}, second.place, second.failure);
        const int32_t status = operation();
        SCOPED_TRACE(DescribePair(machine.journal));
        EXPECT_EQ(std::ranges::count(machine.journal.Records(), true, &machine::CallRecord::struck), 2);
        EXPECT_EQ(machine.Imbalances(), std::vector<std::string>{});
        check(machine.faults.Struck(), status);
        return kFaultWasMet;
    });
}

uint64_t SweepPairs(machine::Machine& machine, const std::function<int32_t()>& operation,
                    const std::function<void(const machine::CallRecord* failed, int32_t status)>& check)
{
    std::mt19937_64 random(1);
    uint64_t pairs = 0;
    int failures = 0;
    for (const uint64_t first : FirstCalls(CallsAfter(machine, 0, operation).size(), random)) {
        const std::vector<LaterCall> later = CallsAfter(machine, first, operation);
        for (const uint64_t second : SecondCalls(later.size(), random)) {
            ++pairs;
            if (RunPair(machine, first, later[second], operation, check) != kFaultWasMet) {
                ADD_FAILURE() << "call " << first << " and the " << second + 1 << ". faultable one after it failed";
                if (++failures == kFailuresToShow) {
                    return pairs;
                }
            }
        }
    }
    return pairs;
}

}  // namespace

uint64_t SweepFailingCalls(machine::Machine& machine, FaultMode mode, const std::function<int32_t()>& operation,
                           const std::function<void(const machine::CallRecord* failed, int32_t status)>& check)
{
    if (mode == FaultMode::TwoCalls) {
        return SweepPairs(machine, operation, check);
    }
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

bool AsksForSize(const machine::CallRecord& call)
{
    constexpr uint32_t geometry = 0x700A0;
    return call.kind == machine::CallKind::DeviceControl && call.code == geometry;
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
    for (const bool asksForSize : {false, true}) {
        for (const machine::CallRecord& call : journal.Records()) {
            const bool isDue = call.struck && AsksForSize(call) == asksForSize;
            if (const int32_t debt = isDue ? owed(call) : 0; debt != 0) {
                return debt;
            }
        }
    }
    return 0;
}
