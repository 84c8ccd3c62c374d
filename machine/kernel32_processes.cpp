#include "core/kernel32_api.h"
#include "machine/gate.h"
#include "machine/kernel32.h"
#include "machine/machine.h"
#include "machine/native_text.h"
#include "machine/text.h"

// The entry points of kernel32.dll that start processes, wait for them and ask how they ended.

namespace machine {

namespace {

/// The real call writes into the command line while it looks for the program's name.
void WriteToAndRestore(char16_t* text)
{
    for (volatile char16_t* unit = text; unit != nullptr && *unit != 0; unit = unit + 1) {
        const char16_t before = *unit;
        *unit = 0;
        *unit = before;
    }
}

int32_t KK_CALL CreateProcessW(const char16_t* application, char16_t* commandLine, void* processSecurity,
                               void* threadSecurity, int32_t inheritHandles, uint32_t flags, void* environment,
                               const char16_t* directory, kk::StartupInfo* startup, kk::ProcessInformation* process)
{
    Machine& machine = Machine::Current();
    ProcessStart start = {.application = TextOf(application),
                          .commandLine = TextOf(commandLine != nullptr ? commandLine : application),
                          .hasSecurity = processSecurity != nullptr || threadSecurity != nullptr,
                          .inheritsHandles = inheritHandles != 0,
                          .flags = flags,
                          .hasEnvironment = environment != nullptr};
    CallRecord call = {.kind = CallKind::Win32Bool,
                       .name = "CreateProcessW",
                       .object = Utf8(start.application + u" " + start.commandLine),
                       .options = flags};
    if (directory != nullptr) {
        start.directory = directory;
    }
    if (startup != nullptr) {
        start.startup = *startup;
        call.input = BytesOf(*startup);
    }
    return PassGate(machine, std::move(call), [&](CallRecord& record) -> int32_t {
        if (startup == nullptr || process == nullptr) {
            machine.Report(record.name + ": no start-up record, or no place for the answer");
            return 0;
        }
        WriteToAndRestore(commandLine);
        return machine.processes.Start(std::move(start), *process) ? 1 : 0;
    });
}

uint32_t KK_CALL WaitForSingleObject(kk::NtHandle handle, uint32_t milliseconds)
{
    Machine& machine = Machine::Current();
    CallRecord call = {.kind = CallKind::Win32Wait,
                       .name = "WaitForSingleObject",
                       .object = HandleName(machine, handle),
                       .length = milliseconds};
    return PassGate(machine, std::move(call),
                    [&](CallRecord&) { return static_cast<uint32_t>(machine.processes.Wait(handle, milliseconds)); });
}

int32_t KK_CALL GetExitCodeProcess(kk::NtHandle handle, uint32_t* exitCode)
{
    Machine& machine = Machine::Current();
    CallRecord call = {
        .kind = CallKind::Win32Bool, .name = "GetExitCodeProcess", .object = HandleName(machine, handle)};
    return PassGate(machine, std::move(call), [&](CallRecord& record) -> int32_t {
        const std::optional<uint32_t> code = machine.processes.ExitCodeOf(handle);
        if (!code || exitCode == nullptr) {
            machine.Report(record.name + ": " + (code ? "no place for the code" : "no handle of a process"));
            return 0;
        }
        *exitCode = *code;
        record.information = *code;
        return 1;
    });
}

}  // namespace

void AddKernel32Processes(Modules& modules)
{
    modules.Add(u"kernel32.dll", {
                                     {"CreateProcessW", EntryAddress(&CreateProcessW)},
                                     {"WaitForSingleObject", EntryAddress(&WaitForSingleObject)},
                                     {"GetExitCodeProcess", EntryAddress(&GetExitCodeProcess)},
                                 });
}

}  // namespace machine
