#pragma once

#include <concepts>
#include <exception>
#include <string>
#include <type_traits>
#include <utility>

#include "core/nt_types.h"
#include "machine/calls.h"
#include "machine/machine_lock.h"

namespace machine {

class Machine;

/// One call on its way through the machine: holds the machine's lock, takes a number, meets its fault and ends as a
/// record in the journal.
class Passage {
public:
    Passage(Machine& machine, CallRecord record);
    Passage(const Passage&) = delete;
    Passage& operator=(const Passage&) = delete;
    ~Passage();

    bool IsStruck() const { return record_.struck && !record_.shortenedTo; }
    CallRecord& Record() { return record_; }
    void SetResult(uint32_t result) { record_.result = result; }

    /// A body threw: a mistake in the machine or in a test's own answer. Reports it and fails the call.
    void Fail(const std::exception& error);

private:
    MachineLock lock_;
    Machine& machine_;
    CallRecord record_;
};

template <typename Result>
uint32_t RecordedResult(const Result& result)
{
    if constexpr (std::is_pointer_v<Result>) {
        return result != nullptr ? 1 : 0;
    } else {
        return static_cast<uint32_t>(result);
    }
}

/// A failing call's result; pointers have only one way to fail.
template <typename Result>
Result ResultOfFault(uint32_t recorded)
{
    if constexpr (std::is_pointer_v<Result>) {
        return nullptr;
    } else if constexpr (!std::is_void_v<Result>) {
        return static_cast<Result>(recorded);
    }
}

/// What a handle stands for, for the record of a call that has not passed the gate yet.
std::string HandleName(Machine& machine, kk::NtHandle handle);

/// The one way into the machine. `body` takes the record, does the work and returns the entry point's own result; a
/// fault keeps it from running, so that nothing is done and no output is touched. No exception leaves.
template <typename Body>
auto PassGate(Machine& machine, CallRecord record, Body&& body) -> std::invoke_result_t<Body, CallRecord&>
{
    using Result = std::invoke_result_t<Body, CallRecord&>;
    Passage passage(machine, std::move(record));
    if (!passage.IsStruck()) {
        try {
            if constexpr (std::is_void_v<Result>) {
                body(passage.Record());
                return;
            } else {
                Result result = body(passage.Record());
                passage.SetResult(RecordedResult(result));
                return result;
            }
        } catch (const std::exception& error) {
            passage.Fail(error);
        }
    }
    return ResultOfFault<Result>(passage.Record().result);
}

}  // namespace machine
