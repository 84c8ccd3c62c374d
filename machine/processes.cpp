#include "machine/processes.h"

#include <algorithm>
#include <exception>
#include <utility>

#include "machine/command_interpreter.h"
#include "machine/machine.h"
#include "machine/text.h"

namespace machine {

namespace {

constexpr std::string_view kProcessKind = "process ";
constexpr std::string_view kThreadKind = "thread ";
constexpr uint32_t kExitCodeOfBreach = 1;
constexpr int64_t kMillisecond = 10'000;

/// What a handle is called in records, and how it is told from others: "process 4096: cmd.exe /c ...".
std::string HandleName(std::string_view kind, uint32_t id, const ProcessStart& start)
{
    return std::string(kind) + std::to_string(id) + ": " + Utf8(start.commandLine);
}

}  // namespace

Processes::Processes(Machine& machine) : machine_(machine)
{
    SetProgram(kCommandInterpreter,
               [&machine](const ProcessStart& start) { return RunCommandInterpreter(machine, start.commandLine); });
}

void Processes::SetProgram(std::u16string_view application, Program program)
{
    programs_[UpperCase(application)] = std::move(program);
}

void Processes::RemoveProgram(std::u16string_view application)
{
    programs_.erase(UpperCase(application));
}

bool Processes::Start(ProcessStart start, kk::ProcessInformation& information)
{
    const auto program = programs_.find(UpperCase(start.application));
    if (program == programs_.end()) {
        return false;
    }
    const uint32_t processId = std::exchange(nextId_, nextId_ + 8);
    const uint32_t threadId = processId + 4;
    start.processId = processId;
    start.time = machine_.clock.Now();
    const auto process = std::make_shared<Process>();
    process->course = program->second(start);
    if (process->course.duration != ProcessCourse::kForEver) {
        process->endsAt = start.time + process->course.duration;
    }
    process->start = std::move(start);
    all_.push_back(process);
    running_.push_back(process);
    information.process =
        machine_.handles.AddServiceHandle(HandleName(kProcessKind, processId, process->start), {}, process);
    information.thread =
        machine_.handles.AddServiceHandle(HandleName(kThreadKind, threadId, process->start), {}, process);
    information.processId = processId;
    information.threadId = threadId;
    return true;
}

std::shared_ptr<Process> Processes::Find(kk::NtHandle handle, std::string_view kind) const
{
    const std::string name = machine_.handles.NameOf(handle);
    return name.starts_with(kind) ? machine_.handles.FindService<Process>(handle, name) : nullptr;
}

WaitResult Processes::Wait(kk::NtHandle handle, uint32_t milliseconds)
{
    std::shared_ptr<Process> process = Find(handle, kProcessKind);
    if (process == nullptr) {
        process = Find(handle, kThreadKind);
    }
    if (process == nullptr) {
        machine_.Report("a wait for " + Hex(reinterpret_cast<uintptr_t>(handle)) + ", no handle of a process");
        return WaitResult::Failed;
    }
    if (process->exitCode) {
        return WaitResult::Signalled;
    }
    if (milliseconds == kInfinite && !process->endsAt) {
        machine_.Report("a wait for ever for a process that never ends: " + Utf8(process->start.commandLine));
        return WaitResult::Failed;
    }
    const int64_t now = machine_.clock.Now();
    const int64_t timeOut = milliseconds == kInfinite ? ProcessCourse::kForEver : milliseconds * kMillisecond;
    const int64_t left = process->endsAt ? std::max<int64_t>(*process->endsAt - now, 0) : ProcessCourse::kForEver;
    machine_.clock.Advance(std::min(left, timeOut));
    CatchUp();
    return process->exitCode ? WaitResult::Signalled : WaitResult::TimedOut;
}

std::optional<uint32_t> Processes::ExitCodeOf(kk::NtHandle handle) const
{
    const std::shared_ptr<Process> process = Find(handle, kProcessKind);
    return process != nullptr ? std::optional(process->exitCode.value_or(kStillActive)) : std::nullopt;
}

void Processes::CatchUp()
{
    const auto endsEarlier = [](const std::shared_ptr<Process>& left, const std::shared_ptr<Process>& right) {
        return left->endsAt.value_or(ProcessCourse::kForEver) < right->endsAt.value_or(ProcessCourse::kForEver);
    };
    for (;;) {
        const auto next = std::min_element(running_.begin(), running_.end(), endsEarlier);
        if (next == running_.end() || !(*next)->endsAt || *(*next)->endsAt > machine_.clock.Now()) {
            return;
        }
        // Out of the list first: its work may call the machine, which comes back here.
        const std::shared_ptr<Process> process = *next;
        running_.erase(next);
        End(*process);
    }
}

void Processes::End(Process& process)
{
    process.exitCode = process.course.exitCode;
    if (!process.course.work) {
        return;
    }
    try {
        process.exitCode = process.course.work();
    } catch (const std::exception& error) {
        machine_.Report(Utf8(process.start.commandLine) + ": " + error.what());
        process.exitCode = kExitCodeOfBreach;
    }
}

}  // namespace machine
