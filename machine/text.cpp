#include "machine/text.h"

#include <cstdint>
#include <cstdio>
#include <stdexcept>

#include "machine/native_text.h"

namespace machine {

namespace {

void AppendUtf16(std::u16string& text, char32_t point)
{
    if (point < 0x10000) {
        text += static_cast<char16_t>(point);
        return;
    }
    text += static_cast<char16_t>(0xD800 + ((point - 0x10000) >> 10));
    text += static_cast<char16_t>(0xDC00 + ((point - 0x10000) & 0x3FF));
}

char16_t Upper(char16_t unit)
{
    return unit >= u'a' && unit <= u'z' ? static_cast<char16_t>(unit - 32) : unit;
}

/// Decodes the character at `at` and moves past it.
char32_t NextPoint(std::string_view text, size_t& at)
{
    const auto lead = static_cast<uint8_t>(text[at++]);
    if (lead < 0x80) {
        return lead;
    }
    const int continuations = lead >= 0xF0 ? 3 : lead >= 0xE0 ? 2 : lead >= 0xC0 ? 1 : 0;
    char32_t point = lead & (0x3Fu >> continuations);
    for (int i = 0; i < continuations; ++i) {
        if (at >= text.size() || (static_cast<uint8_t>(text[at]) & 0xC0) != 0x80) {
            return kReplacementCharacter;
        }
        point = (point << 6) | (static_cast<uint8_t>(text[at++]) & 0x3Fu);
    }
    return continuations == 0 || point > 0x10FFFF ? kReplacementCharacter : point;
}

}  // namespace

std::string Utf8(std::u16string_view text)
{
    std::string result;
    for (size_t at = 0; at < text.size();) {
        AppendUtf8(result, NextCharacter(text, at).value_or(kReplacementCharacter));
    }
    return result;
}

std::u16string Utf16(std::string_view text)
{
    std::u16string result;
    for (size_t at = 0; at < text.size();) {
        AppendUtf16(result, NextPoint(text, at));
    }
    return result;
}

std::u16string UpperCase(std::u16string_view text)
{
    std::u16string result(text);
    for (char16_t& unit : result) {
        unit = Upper(unit);
    }
    return result;
}

bool EqualsIgnoreCase(std::u16string_view left, std::u16string_view right)
{
    return left.size() == right.size() && UpperCase(left) == UpperCase(right);
}

std::u16string BracedGuid(const kk::Guid& guid)
{
    char text[48];
    std::snprintf(text, sizeof(text), "{%08x-%04x-%04x-%02x%02x-%02x%02x%02x%02x%02x%02x}", guid.data1, guid.data2,
                  guid.data3, guid.data4[0], guid.data4[1], guid.data4[2], guid.data4[3], guid.data4[4], guid.data4[5],
                  guid.data4[6], guid.data4[7]);
    return Utf16(text);
}

kk::Guid ParseGuid(std::string_view text)
{
    std::string bare(text);
    if (bare.size() == 38 && bare.front() == '{' && bare.back() == '}') {
        bare = bare.substr(1, 36);
    }
    unsigned int head[3] = {};
    unsigned int tail[8] = {};
    int used = 0;
    const int fields =
        std::sscanf(bare.c_str(), "%8x-%4x-%4x-%2x%2x-%2x%2x%2x%2x%2x%2x%n", &head[0], &head[1], &head[2], &tail[0],
                    &tail[1], &tail[2], &tail[3], &tail[4], &tail[5], &tail[6], &tail[7], &used);
    if (fields != 11 || used != 36 || bare.size() != 36) {
        throw std::invalid_argument("no GUID: " + bare);
    }
    kk::Guid guid = {head[0], static_cast<uint16_t>(head[1]), static_cast<uint16_t>(head[2]), {}};
    for (int i = 0; i < 8; ++i) {
        guid.data4[i] = static_cast<uint8_t>(tail[i]);
    }
    return guid;
}

std::string Hex(uint64_t value)
{
    char text[24];
    std::snprintf(text, sizeof(text), "0x%llX", static_cast<unsigned long long>(value));
    return text;
}

}  // namespace machine
