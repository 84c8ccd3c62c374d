#include "platform.h"

#include <windows.h>

#include <shellapi.h>

#include "text.h"

namespace kkctl {

std::vector<std::string> ProgramArguments(int, char**)
{
    int count = 0;
    LPWSTR* const list = CommandLineToArgvW(GetCommandLineW(), &count);
    std::vector<std::string> arguments;
    for (int i = 1; list != nullptr && i < count; ++i) {
        arguments.push_back(ToUtf8(list[i]));
    }
    LocalFree(list);
    return arguments;
}

bool ErrorIsTerminal()
{
    DWORD mode = 0;
    return GetConsoleMode(GetStdHandle(STD_ERROR_HANDLE), &mode) != 0;
}

Utf8Console::Utf8Console() : previousCodePage_(GetConsoleOutputCP())
{
    SetConsoleOutputCP(CP_UTF8);
}

Utf8Console::~Utf8Console()
{
    SetConsoleOutputCP(previousCodePage_);
}

struct Ticker::State {
    std::chrono::milliseconds period;
    std::function<void()> tick;
    HANDLE stop = nullptr;
    HANDLE thread = nullptr;

    static DWORD WINAPI Run(void* parameter)
    {
        const State& state = *static_cast<const State*>(parameter);
        while (WaitForSingleObject(state.stop, static_cast<DWORD>(state.period.count())) == WAIT_TIMEOUT) {
            state.tick();
        }
        return 0;
    }
};

Ticker::Ticker(std::chrono::milliseconds period, std::function<void()> tick) : state_(std::make_unique<State>())
{
    state_->period = period;
    state_->tick = std::move(tick);
    state_->stop = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    state_->thread = state_->stop != nullptr ? CreateThread(nullptr, 0, State::Run, state_.get(), 0, nullptr) : nullptr;
}

Ticker::~Ticker()
{
    if (state_->thread != nullptr) {
        SetEvent(state_->stop);
        WaitForSingleObject(state_->thread, INFINITE);
        CloseHandle(state_->thread);
    }
    if (state_->stop != nullptr) {
        CloseHandle(state_->stop);
    }
}

}  // namespace kkctl
