#pragma once

#include <cstddef>
#include <cstdint>

namespace kk {

/// Units before the terminator.
[[nodiscard]] size_t TextLength(const char16_t* text);

/// Units before the terminator, at most `limit`; nothing is read from `limit` on.
[[nodiscard]] size_t TextLength(const char16_t* text, size_t limit);

/// Adds one unit at `position` and terminates behind it, as long as both fit into `capacity` units.
void AppendUnit(char16_t* buffer, size_t capacity, size_t& position, char16_t unit);

/// Adds `text` at `position`, advancing it, cut so that the terminator fits into `capacity` units.
void AppendText(char16_t* buffer, size_t capacity, size_t& position, const char16_t* text);

/// Adds the decimal digits of `value` at `position`, advancing it, cut so that the terminator fits into `capacity`.
void AppendDecimal(char16_t* buffer, size_t capacity, size_t& position, uint32_t value);

/// Copies `text`, cut so that the terminator fits into `capacity` units.
void CopyText(char16_t* buffer, size_t capacity, const char16_t* text);

[[nodiscard]] bool SameText(const char16_t* a, const char16_t* b);

/// The text of a caller of an export, or its room for text; wide characters have their own type there.
template <typename Unit>
[[nodiscard]] const char16_t* FromCaller(const Unit* text)
{
    static_assert(sizeof(Unit) == sizeof(char16_t));
    return reinterpret_cast<const char16_t*>(text);
}

template <typename Unit>
[[nodiscard]] char16_t* FromCaller(Unit* text)
{
    static_assert(sizeof(Unit) == sizeof(char16_t));
    return reinterpret_cast<char16_t*>(text);
}

}  // namespace kk
