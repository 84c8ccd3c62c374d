#include "platform.h"

#include <condition_variable>
#include <fstream>
#include <iostream>
#include <mutex>
#include <stop_token>
#include <thread>

#include <unistd.h>

namespace kkctl {

std::vector<std::string> ProgramArguments(int argc, char** argv)
{
    return {argv + (argc > 0 ? 1 : 0), argv + argc};
}

bool InputIsTerminal()
{
    return isatty(STDIN_FILENO) != 0;
}

bool ErrorIsTerminal()
{
    return isatty(STDERR_FILENO) != 0;
}

std::optional<std::string> ReadInputLine()
{
    std::string line;
    return std::getline(std::cin, line) ? std::optional(line) : std::nullopt;
}

uint64_t ProcessBytesWritten()
{
    std::ifstream counters("/proc/self/io");
    for (std::string line; std::getline(counters, line);) {
        constexpr std::string_view kWritten = "wchar: ";
        if (line.starts_with(kWritten)) {
            return std::stoull(line.substr(kWritten.size()));
        }
    }
    return 0;
}

Utf8Console::Utf8Console() = default;
Utf8Console::~Utf8Console() = default;

struct Ticker::State {
    std::chrono::milliseconds period;
    std::function<void()> tick;
    std::mutex mutex;
    std::condition_variable_any wake;
    std::jthread thread;  // last, so that it ends before what it uses

    void Run(const std::stop_token& stop)
    {
        std::unique_lock lock(mutex);
        while (!wake.wait_for(lock, stop, period, [&stop] { return stop.stop_requested(); })) {
            tick();
        }
    }
};

Ticker::Ticker(std::chrono::milliseconds period, std::function<void()> tick) : state_(std::make_unique<State>())
{
    state_->period = period;
    state_->tick = std::move(tick);
    state_->thread = std::jthread([state = state_.get()](const std::stop_token& stop) { state->Run(stop); });
}

Ticker::~Ticker() = default;

}  // namespace kkctl
