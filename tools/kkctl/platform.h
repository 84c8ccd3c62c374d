#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kkctl {

/// The program's arguments without its name, as UTF-8.
std::vector<std::string> ProgramArguments(int argc, char** argv);

bool InputIsTerminal();
bool ErrorIsTerminal();

/// One line of standard input as UTF-8, without its end; nothing when there are no more.
std::optional<std::string> ReadInputLine();

/// Bytes that this process has written so far, whatever to. For any thread.
uint64_t ProcessBytesWritten();

/// Makes a console show UTF-8 while the object lives.
class Utf8Console {
public:
    Utf8Console();
    Utf8Console(const Utf8Console&) = delete;
    Utf8Console& operator=(const Utf8Console&) = delete;
    ~Utf8Console();

private:
    unsigned previousCodePage_ = 0;
};

/// Calls a function again and again, on a thread of its own, until the object goes.
class Ticker {
public:
    Ticker(std::chrono::milliseconds period, std::function<void()> tick);
    Ticker(const Ticker&) = delete;
    Ticker& operator=(const Ticker&) = delete;
    ~Ticker();

private:
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace kkctl
