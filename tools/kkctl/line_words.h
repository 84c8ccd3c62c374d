#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kkctl {

/// Splits a line of the shell into words. Blanks part them, except between double quotes, in which "" is one quote.
/// A backslash is a character like any other, because that is what Windows paths are made of. Nothing when a quotation
/// does not end.
std::optional<std::vector<std::string>> SplitWords(std::string_view line);

}  // namespace kkctl
