#include "machine/gate.h"

#include <chrono>

#include "machine/machine.h"

namespace machine {

namespace {

uint64_t MonotonicNs()
{
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    return static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::nanoseconds>(now).count());
}

}  // namespace

Passage::Passage(Machine& machine, CallRecord record) : lock_(machine), machine_(machine), record_(std::move(record))
{
    record_.index = machine_.NextCallIndex();
    record_.enteredNs = MonotonicNs();
    machine_.volumes.CountCall();
    const Faults::Verdict verdict = machine_.faults.Judge(record_);
    machine_.clock.Advance(verdict.delay);
    machine_.processes.CatchUp();
    record_.struck = verdict.result || verdict.shortenedTo;
    if (verdict.result) {
        record_.result = *verdict.result;
    } else {
        record_.shortenedTo = verdict.shortenedTo;
    }
}

Passage::~Passage()
{
    record_.leftNs = MonotonicNs();
    if (record_.struck) {
        machine_.faults.NoteStruck(record_);
    }
    machine_.journal.Add(std::move(record_));
}

void Passage::Fail(const std::exception& error)
{
    machine_.Report(record_.name + " on " + record_.object + ": " + error.what());
    record_.result = NaturalFailure(record_.kind);
}

std::string HandleName(Machine& machine, kk::NtHandle handle)
{
    const MachineLock lock(machine);
    return machine.handles.NameOf(handle);
}

}  // namespace machine
