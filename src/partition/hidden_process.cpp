#include "partition/hidden_process.h"

#include "core/kernel32_api.h"

namespace kk {

namespace {

constexpr uint32_t kPatienceMilliseconds = 120'000;

/// A started program. Its handles are closed when this object ends, if kernel32 can close any.
class ChildProcess {
public:
    explicit ChildProcess(const Kernel32Api& api) : api_(api) {}
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;
    ~ChildProcess()
    {
        Close(information_.thread);
        Close(information_.process);
    }

    [[nodiscard]] bool Start(const char16_t* application, char16_t* commandLine)
    {
        StartupInfo startup = {};
        startup.size = sizeof(startup);
        startup.flags = kStartfUseShowWindow;
        startup.showWindow = kSwHide;
        ProcessInformation started = {};
        if (api_.createProcessW(application, commandLine, nullptr, nullptr, 0, kCreateNoWindow, nullptr, nullptr,
                                &startup, &started) == 0) {
            return false;
        }
        information_ = started;
        return true;
    }

    /// What comes of the wait is not looked at: the exit code of a program that still runs is no success either.
    void Wait() const
    {
        if (api_.waitForSingleObject != nullptr) {
            (void)api_.waitForSingleObject(information_.process, kPatienceMilliseconds);
        }
    }

    [[nodiscard]] uint32_t ExitCode() const
    {
        uint32_t code = 0xFFFFFFFF;
        if (api_.getExitCodeProcess != nullptr) {
            (void)api_.getExitCodeProcess(information_.process, &code);
        }
        return code;
    }

private:
    void Close(NtHandle handle) const
    {
        if (handle != nullptr && api_.closeHandle != nullptr) {
            (void)api_.closeHandle(handle);
        }
    }

    const Kernel32Api& api_;
    ProcessInformation information_ = {};
};

}  // namespace

KK_STATUS RunHidden(const char16_t* application, char16_t* commandLine)
{
    ChildProcess child(GetKernel32Api());
    if (!child.Start(application, commandLine)) {
        return KK_STATUS_UNSUCCESSFUL;
    }
    child.Wait();
    return child.ExitCode() == 0 ? KK_STATUS_SUCCESS : KK_STATUS_UNSUCCESSFUL;
}

}  // namespace kk
