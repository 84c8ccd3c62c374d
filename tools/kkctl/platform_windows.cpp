#include "platform.h"

#include <array>
#include <iostream>

#include <windows.h>

#include <shellapi.h>

#include "text.h"

namespace kkctl {

namespace {

bool IsConsole(HANDLE handle)
{
    DWORD mode = 0;
    return GetConsoleMode(handle, &mode) != 0;
}

std::optional<std::string> ReadConsoleLine(HANDLE console)
{
    constexpr wchar_t kEndOfInput = 0x1A;  // Ctrl+Z
    WideString line;
    while (!line.ends_with(L'\n')) {
        std::array<wchar_t, 256> units = {};
        DWORD count = 0;
        if (!ReadConsoleW(console, units.data(), units.size(), &count, nullptr) || count == 0) {
            return std::nullopt;
        }
        line.append(units.data(), count);
    }
    if (line.starts_with(kEndOfInput)) {
        return std::nullopt;
    }
    line.erase(line.find_last_not_of(L"\r\n") + 1);
    return ToUtf8(line);
}

}  // namespace

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

bool InputIsTerminal()
{
    return IsConsole(GetStdHandle(STD_INPUT_HANDLE));
}

bool ErrorIsTerminal()
{
    return IsConsole(GetStdHandle(STD_ERROR_HANDLE));
}

std::optional<std::string> ReadInputLine()
{
    const HANDLE input = GetStdHandle(STD_INPUT_HANDLE);
    if (IsConsole(input)) {
        return ReadConsoleLine(input);  // whose bytes have no characters outside the console's code page
    }
    std::string line;
    return std::getline(std::cin, line) ? std::optional(line) : std::nullopt;
}

uint64_t ProcessBytesWritten()
{
    IO_COUNTERS counters = {};
    return GetProcessIoCounters(GetCurrentProcess(), &counters) ? counters.WriteTransferCount : 0;
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
