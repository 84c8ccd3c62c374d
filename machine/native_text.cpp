#include "machine/native_text.h"

#include <cstdint>

namespace machine {

namespace {

bool IsHighSurrogate(char32_t unit)
{
    return unit >= 0xD800 && unit < 0xDC00;
}

bool IsLowSurrogate(char32_t unit)
{
    return unit >= 0xDC00 && unit < 0xE000;
}

}  // namespace

std::u16string TextOf(const char16_t* text)
{
    return text != nullptr ? text : std::u16string();
}

std::optional<char32_t> NextCharacter(std::u16string_view text, size_t& at)
{
    const char32_t unit = text[at++];
    if (IsHighSurrogate(unit) && at < text.size() && IsLowSurrogate(text[at])) {
        return 0x10000 + ((unit - 0xD800) << 10) + (text[at++] - 0xDC00u);
    }
    return IsHighSurrogate(unit) || IsLowSurrogate(unit) ? std::nullopt : std::optional(unit);
}

void AppendUtf8(std::string& text, char32_t character)
{
    if (character < 0x80) {
        text += static_cast<char>(character);
        return;
    }
    const int continuations = character < 0x800 ? 1 : character < 0x10000 ? 2 : 3;
    static constexpr uint32_t kLead[] = {0, 0xC0, 0xE0, 0xF0};
    text += static_cast<char>(kLead[continuations] | (character >> (6 * continuations)));
    for (int i = continuations - 1; i >= 0; --i) {
        text += static_cast<char>(0x80 | ((character >> (6 * i)) & 0x3F));
    }
}

}  // namespace machine
