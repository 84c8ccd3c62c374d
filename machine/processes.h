#pragma once

#include <cstdint>
#include <functional>
#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/kernel32_api.h"
#include "machine/nt_values.h"

namespace machine {

class Machine;

/// The folder that GetSystemDirectoryW tells, and the command interpreter in it.
inline constexpr std::u16string_view kSystemFolder = u"C:\\Windows\\system32";
inline constexpr std::u16string_view kCommandInterpreter = u"C:\\Windows\\system32\\cmd.exe";

/// What CreateProcessW was asked for.
struct ProcessStart {
    std::u16string application;
    std::u16string commandLine;
    bool hasSecurity = false;  // of the process or of its thread
    bool inheritsHandles = false;
    uint32_t flags = 0;
    bool hasEnvironment = false;
    std::optional<std::u16string> directory = std::nullopt;
    kk::StartupInfo startup = {};  // its pointers are the caller's and may be gone
    uint32_t processId = 0;
    int64_t time = 0;  // on the machine's clock
};

/// How a process goes: it lasts for a while, then does its work, if it has any, and ends. Durations are in units of
/// 100 nanoseconds on the machine's clock.
struct ProcessCourse {
    static constexpr int64_t kForEver = std::numeric_limits<int64_t>::max();

    uint32_t exitCode = 0;
    int64_t duration = 0;
    std::function<uint32_t()> work = {};  // its answer is the exit code instead
};

/// A process that the machine's one real process has started.
struct Process {
    ProcessStart start;
    std::optional<int64_t> endsAt;  // nothing when it never ends
    ProcessCourse course;
    std::optional<uint32_t> exitCode = std::nullopt;  // nothing while it runs
};

/// What a wait ended with: the result of WaitForSingleObject.
enum class WaitResult : uint32_t { Signalled = 0, TimedOut = 0x102, Failed = kWaitFailed };

/// The processes that were started, and the programs that can be. Only the command interpreter is known at first.
/// A process ends when the machine's clock has passed its time, whether or not handles of it are still open; one that
/// runs when the machine ends never does its work.
class Processes {
public:
    using Program = std::function<ProcessCourse(const ProcessStart&)>;

    static constexpr uint32_t kStillActive = 259;
    static constexpr uint32_t kInfinite = 0xFFFFFFFF;

    explicit Processes(Machine& machine);

    /// Adds or replaces the program that an application path, in any case, stands for.
    void SetProgram(std::u16string_view application, Program program);
    void RemoveProgram(std::u16string_view application);

    /// False when there is no program of that application; `information` is left alone then. Unlike the real system
    /// this one does not look for a program when no application is named.
    bool Start(ProcessStart start, kk::ProcessInformation& information);

    /// Moves the clock on to the process's end, or by the time-out when that comes first. Takes handles of processes
    /// and of threads. Waiting for ever for what never ends is a breach of the rules, and so is a handle of neither.
    WaitResult Wait(kk::NtHandle handle, uint32_t milliseconds);
    /// kStillActive while it runs; nothing when that is no handle of a process.
    std::optional<uint32_t> ExitCodeOf(kk::NtHandle handle) const;

    /// Ends the processes whose time has come, in the order of their ends. Every call of the machine begins with it.
    void CatchUp();

    /// All processes that were started, in order.
    const std::vector<std::shared_ptr<const Process>>& All() const { return all_; }

    /// How long a format takes.
    int64_t formatDuration = 20'000'000;

private:
    void End(Process& process);
    std::shared_ptr<Process> Find(kk::NtHandle handle, std::string_view kind) const;

    Machine& machine_;
    std::map<std::u16string, Program> programs_;  // by the path in upper case
    std::vector<std::shared_ptr<const Process>> all_;
    std::vector<std::shared_ptr<Process>> running_;
    uint32_t nextId_ = 0x1000;
};

}  // namespace machine
