#include "machine/command_interpreter.h"

#include <span>

#include "machine/command_line.h"
#include "machine/format_command.h"
#include "machine/text.h"

namespace machine {

namespace {

constexpr uint32_t kCommandNotFound = 1;
constexpr std::u16string_view kOwnCharacters = u"&|<>^";

bool IsFormat(std::u16string_view command)
{
    return EqualsIgnoreCase(command, u"format") || EqualsIgnoreCase(command, u"format.com");
}

}  // namespace

ProcessCourse RunCommandInterpreter(Machine& machine, std::u16string_view commandLine)
{
    const std::vector<std::u16string> words = WordsOf(commandLine);
    if (words.size() < 2 || !EqualsIgnoreCase(words[1], u"/c")) {
        return {.duration = ProcessCourse::kForEver};
    }
    if (words.size() < 3) {
        return {.exitCode = 0};
    }
    if (!IsFormat(words[2]) || HasUnquoted(commandLine, kOwnCharacters)) {
        return {.exitCode = kCommandNotFound};
    }
    return RunFormatCommand(machine, std::span(words).subspan(3));
}

}  // namespace machine
