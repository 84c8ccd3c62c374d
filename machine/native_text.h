#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

// UTF-16 as callers hand it over: it may be missing, and its surrogates may stand alone.

namespace machine {

inline constexpr char32_t kReplacementCharacter = 0xFFFD;

/// An argument that may be null, which counts as empty.
std::u16string TextOf(const char16_t* text);

/// The character at `at`, which moves past it; nothing for half a surrogate pair.
std::optional<char32_t> NextCharacter(std::u16string_view text, size_t& at);

void AppendUtf8(std::string& text, char32_t character);

}  // namespace machine
