#pragma once

#include <string>
#include <string_view>

#include "core/guid.h"

namespace machine {

/// UTF-8 of UTF-16; lone surrogates become U+FFFD.
std::string Utf8(std::u16string_view text);

/// UTF-16 of UTF-8; malformed bytes become U+FFFD.
std::u16string Utf16(std::string_view text);

/// Upper case, for A to Z only: the names of the object namespace that the machine uses have no other letters.
std::u16string UpperCase(std::u16string_view text);

bool EqualsIgnoreCase(std::u16string_view left, std::u16string_view right);

/// "{xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx}", lower case.
std::u16string BracedGuid(const kk::Guid& guid);

/// Reads "xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx", with or without braces, in either case; throws on anything else.
kk::Guid ParseGuid(std::string_view text);

/// "0xC000000D", for messages.
std::string Hex(uint64_t value);

}  // namespace machine
