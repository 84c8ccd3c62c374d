#include "shell.h"

#include <optional>

#include <CLI/CLI.hpp>

#include "app.h"
#include "context.h"
#include "line_words.h"
#include "text.h"

namespace kkctl {

namespace {

using Words = std::vector<std::string>;

std::optional<std::string> Prompt(const Context& context)
{
    if (!context.InputIsTerminal()) {
        return context.ReadLine();
    }
    context.Err() << "kkctl> " << std::flush;
    std::optional<std::string> line = context.ReadLine();
    if (!line) {
        context.Err() << '\n';  // what follows begins on a line of its own
    }
    return line;
}

/// What is not UTF-8 would reach the library changed, and a zero would end a text early.
bool IsText(const std::string& line)
{
    return FromUtf8(line) && line.find('\0') == std::string::npos;
}

/// Editors on Windows like to put a mark before the first line.
std::string WithoutByteOrderMark(const std::string& line)
{
    constexpr std::string_view kMark = "\xEF\xBB\xBF";
    return line.starts_with(kMark) ? line.substr(kMark.size()) : line;
}

/// The words of a line, none when there is nothing to do, or nothing when it cannot be read.
std::optional<Words> ReadWords(const Context& context, const std::string& line)
{
    if (!IsText(line)) {
        context.Err() << "kkctl: the line is not UTF-8 text\n";
        return std::nullopt;
    }
    if (const size_t first = line.find_first_not_of(" \t"); first != std::string::npos && line[first] == '#') {
        return Words();
    }
    std::optional<Words> words = SplitWords(line);
    if (!words) {
        context.Err() << "kkctl: the line ends within quotes\n";
    }
    return words;
}

/// `help backup` is `backup --help`.
Words WithoutHelpWord(Words words)
{
    if (words.front() == "help") {
        words.erase(words.begin());
        words.emplace_back("--help");
    }
    return words;
}

int RunWords(const Context& context, const Words& words)
{
    Context line = context.ForShellLine();
    return RunShellLine(WithoutHelpWord(words), line);
}

int RunShell(Context& context)
{
    (void)context.OpenedKitForWriting();  // now, so that a library that does not load ends the shell and not each line
    int firstFailure = kExitSuccess;
    size_t number = 0;
    while (const std::optional<std::string> line = Prompt(context)) {
        ++number;
        const std::optional<Words> words = ReadWords(context, number == 1 ? WithoutByteOrderMark(*line) : *line);
        if (words && words->empty()) {
            continue;
        }
        if (words == Words{"exit"} || words == Words{"quit"}) {
            break;
        }
        const int exitCode = words ? RunWords(context, *words) : kExitUsage;
        if (exitCode != kExitSuccess && !context.InputIsTerminal()) {
            context.Err() << "kkctl: line " << number << " failed\n";
            firstFailure = firstFailure == kExitSuccess ? exitCode : firstFailure;
        }
    }
    return firstFailure;
}

}  // namespace

void AddShell(CLI::App& app, Context& context)
{
    CLI::App* const command = app.add_subcommand("shell", "Carry out commands from standard input, one a line");
    command->footer(
        "All lines work with one library and one machine, so letters and mounts last from line to line.\n"
        "Words with blanks go between double quotes, in which \"\" is one quote; a backslash is an ordinary\n"
        "character. Blank lines and lines that begin with # are skipped; help lists the commands; exit,\n"
        "quit and the end of the input end the shell, a command that fails does not. When the input is no\n"
        "terminal, nothing is asked, and the exit code is that of the first command that failed.");
    command->callback([&context] { context.command = [&context] { return RunShell(context); }; });
}

}  // namespace kkctl
