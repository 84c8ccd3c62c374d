#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace machine {

/// The words of a command line: blanks part them, except in quotes, which are not part of a word.
std::vector<std::u16string> WordsOf(std::u16string_view commandLine);

/// Whether one of `characters` stands outside quotes.
bool HasUnquoted(std::u16string_view commandLine, std::u16string_view characters);

}  // namespace machine
