#include "text.h"

#include <cstdint>

namespace kkctl {

namespace {

constexpr char32_t kReplacement = 0xFFFD;

bool IsHighSurrogate(char32_t unit)
{
    return unit >= 0xD800 && unit < 0xDC00;
}

bool IsLowSurrogate(char32_t unit)
{
    return unit >= 0xDC00 && unit < 0xE000;
}

void AppendUtf8(std::string& text, char32_t character)
{
    const auto append = [&text](char32_t byte) { text.push_back(static_cast<char>(static_cast<uint8_t>(byte))); };
    const auto tail = [&](unsigned shift) { append(0x80 | ((character >> shift) & 0x3F)); };
    if (character < 0x80) {
        append(character);
    } else if (character < 0x800) {
        append(0xC0 | (character >> 6));
        tail(0);
    } else if (character < 0x10000) {
        append(0xE0 | (character >> 12));
        tail(6);
        tail(0);
    } else {
        append(0xF0 | (character >> 18));
        tail(12);
        tail(6);
        tail(0);
    }
}

/// Takes one character off the front of `text`; nothing when what stands there is no well-formed UTF-8.
std::optional<char32_t> TakeCharacter(std::string_view& text)
{
    constexpr char32_t kSmallest[] = {0, 0x80, 0x800, 0x10000};  // by number of tail bytes: no overlong forms
    const auto lead = static_cast<uint8_t>(text.front());
    size_t tailCount = 0;
    char32_t character = lead;
    if (lead >= 0xF0) {
        tailCount = 3;
        character = lead & 0x0F;  // F8 and above come out too large
    } else if (lead >= 0xE0) {
        tailCount = 2;
        character = lead & 0x0F;
    } else if (lead >= 0xC0) {
        tailCount = 1;
        character = lead & 0x1F;
    } else if (lead >= 0x80) {
        return std::nullopt;
    }
    if (text.size() <= tailCount) {
        return std::nullopt;
    }
    for (size_t i = 1; i <= tailCount; ++i) {
        const auto byte = static_cast<uint8_t>(text[i]);
        if ((byte & 0xC0) != 0x80) {
            return std::nullopt;
        }
        character = (character << 6) | (byte & 0x3F);
    }
    const bool isHalfPair = IsHighSurrogate(character) || IsLowSurrogate(character);
    if (character < kSmallest[tailCount] || character > 0x10FFFF || isHalfPair) {
        return std::nullopt;
    }
    text.remove_prefix(tailCount + 1);
    return character;
}

}  // namespace

std::string ToUtf8(std::basic_string_view<KkWideChar> text)
{
    std::string result;
    for (size_t i = 0; i < text.size(); ++i) {
        char32_t character = static_cast<uint16_t>(text[i]);
        if (IsHighSurrogate(character) && i + 1 < text.size() && IsLowSurrogate(static_cast<uint16_t>(text[i + 1]))) {
            ++i;
            character = 0x10000 + ((character - 0xD800) << 10) + (static_cast<uint16_t>(text[i]) - 0xDC00u);
        } else if (IsHighSurrogate(character) || IsLowSurrogate(character)) {
            character = kReplacement;
        }
        AppendUtf8(result, character);
    }
    return result;
}

std::optional<WideString> FromUtf8(std::string_view text)
{
    WideString result;
    while (!text.empty()) {
        const std::optional<char32_t> character = TakeCharacter(text);
        if (!character) {
            return std::nullopt;
        }
        if (*character < 0x10000) {
            result.push_back(static_cast<KkWideChar>(*character));
        } else {
            result.push_back(static_cast<KkWideChar>(0xD800 + ((*character - 0x10000) >> 10)));
            result.push_back(static_cast<KkWideChar>(0xDC00 + ((*character - 0x10000) & 0x3FF)));
        }
    }
    return result;
}

std::string Printable(std::string_view text)
{
    std::string result;
    while (!text.empty()) {
        const std::optional<char32_t> character = TakeCharacter(text);
        if (!character) {
            text.remove_prefix(1);
        }
        const bool isControl = !character || *character < 0x20 || (*character >= 0x7F && *character < 0xA0);
        AppendUtf8(result, isControl ? kReplacement : *character);
    }
    return result;
}

size_t DisplayWidth(std::string_view text)
{
    size_t width = 0;
    for (const char byte : text) {
        width += (static_cast<uint8_t>(byte) & 0xC0) != 0x80 ? 1 : 0;
    }
    return width;
}

}  // namespace kkctl
