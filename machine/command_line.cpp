#include "machine/command_line.h"

namespace machine {

std::vector<std::u16string> WordsOf(std::u16string_view commandLine)
{
    std::vector<std::u16string> words;
    bool quoted = false;
    bool inWord = false;
    for (const char16_t unit : commandLine) {
        if (!quoted && (unit == u' ' || unit == u'\t')) {
            inWord = false;
            continue;
        }
        if (!inWord) {
            words.emplace_back();
            inWord = true;
        }
        if (unit == u'"') {
            quoted = !quoted;
        } else {
            words.back() += unit;
        }
    }
    return words;
}

bool HasUnquoted(std::u16string_view commandLine, std::u16string_view characters)
{
    bool quoted = false;
    for (const char16_t unit : commandLine) {
        quoted = quoted != (unit == u'"');
        if (!quoted && characters.find(unit) != std::u16string_view::npos) {
            return true;
        }
    }
    return false;
}

}  // namespace machine
