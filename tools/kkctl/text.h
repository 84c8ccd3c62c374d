#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "kit.h"

namespace kkctl {

/// Converts UTF-16 to UTF-8. Half a surrogate pair, which a table on a disk may hold, becomes U+FFFD.
std::string ToUtf8(std::basic_string_view<KkWideChar> text);

/// Converts UTF-8 to UTF-16; nothing when the text is not valid UTF-8.
std::optional<WideString> FromUtf8(std::string_view text);

/// Makes text from a disk safe for a terminal: each control character becomes U+FFFD.
std::string Printable(std::string_view text);

/// Columns that UTF-8 text takes, counting one per character.
size_t DisplayWidth(std::string_view text);

}  // namespace kkctl
