#include "line_words.h"

namespace kkctl {

namespace {

/// Takes what stands between quotes off the front of `line`, which is behind the first one.
bool TakeQuoted(std::string_view& line, std::string& word)
{
    while (!line.empty()) {
        const char character = line.front();
        line.remove_prefix(1);
        if (character == '"' && !line.starts_with('"')) {
            return true;
        }
        if (character == '"') {
            line.remove_prefix(1);
        }
        word.push_back(character);
    }
    return false;
}

}  // namespace

std::optional<std::vector<std::string>> SplitWords(std::string_view line)
{
    constexpr std::string_view kBlanks = " \t\r";
    std::vector<std::string> words;
    bool isInWord = false;
    while (!line.empty()) {
        const char character = line.front();
        line.remove_prefix(1);
        if (kBlanks.find(character) != std::string_view::npos) {
            isInWord = false;
            continue;
        }
        if (!isInWord) {
            words.emplace_back();
            isInWord = true;
        }
        if (character != '"') {
            words.back().push_back(character);
        } else if (!TakeQuoted(line, words.back())) {
            return std::nullopt;
        }
    }
    return words;
}

}  // namespace kkctl
