#pragma once

#include <string>

#include "core/kernel32_api.h"
#include "machine/processes.h"
#include "tests/machine/native_calls.h"

namespace machine {

inline constexpr int64_t kMillisecond = 10'000;
inline constexpr int64_t kSecond = 1000 * kMillisecond;

inline kk::StartupInfo UsualStartup()
{
    kk::StartupInfo startup = {};
    startup.size = sizeof(startup);
    return startup;
}

/// The calls of kernel32.dll that have to do with processes, and handles that are closed with the test.
class ProcessCallsTest : public MachineTest {
protected:
    ~ProcessCallsTest() override { CloseAll(); }

    template <typename Function>
    Function Entry(Function /*member*/, const char* name) const
    {
        return reinterpret_cast<Function>(machine.modules.FindEntry(machine.modules.Load(u"kernel32.dll"), name));
    }

    /// Starts a process and returns its handle; null when that fails.
    kk::NtHandle Start(std::u16string_view application, std::u16string commandLine)
    {
        kk::StartupInfo startup = UsualStartup();
        kk::ProcessInformation information = {};
        const int32_t started = Entry(api.createProcessW, "CreateProcessW")(std::u16string(application).c_str(),
                                                                            commandLine.data(), nullptr, nullptr, 0, 0,
                                                                            nullptr, nullptr, &startup, &information);
        EXPECT_EQ(started != 0, information.process != nullptr);
        open.insert(open.end(), {information.process, information.thread});
        return information.process;
    }
    /// Starts `cmd.exe /c COMMAND`.
    kk::NtHandle StartCommand(const std::u16string& command)
    {
        return Start(kCommandInterpreter, u"cmd.exe /c " + command);
    }

    uint32_t Wait(kk::NtHandle handle, uint32_t milliseconds) const
    {
        return Entry(api.waitForSingleObject, "WaitForSingleObject")(handle, milliseconds);
    }
    uint32_t ExitCode(kk::NtHandle process) const
    {
        uint32_t code = 0xEEEEEEEE;
        EXPECT_EQ(Entry(api.getExitCodeProcess, "GetExitCodeProcess")(process, &code), 1);
        return code;
    }
    bool Close(kk::NtHandle handle) const { return Entry(api.closeHandle, "CloseHandle")(handle) != 0; }
    void CloseAll()
    {
        for (const kk::NtHandle handle : std::exchange(open, {})) {
            if (handle != nullptr) {
                EXPECT_TRUE(Close(handle));
            }
        }
    }

    std::vector<kk::NtHandle> open;
    static constexpr kk::Kernel32Api api = {};  // for its entries' types
};

}  // namespace machine
