#pragma once

#include <array>
#include <cstdint>
#include <string>

namespace kkctl {

using GuidBytes = std::array<uint8_t, 16>;

/// Text of a GUID in its on-disk byte order, lower case, without braces.
std::string FormatGuid(const GuidBytes& guid);

/// Name of a KK_PARTITION_STYLE_...
const char* StyleName(uint32_t style);

/// Name of a GPT partition type; empty when it is not a well-known one.
std::string GptTypeName(const GuidBytes& type);

/// Name of an MBR partition type; empty when it is not a well-known one.
std::string MbrTypeName(uint8_t type);

}  // namespace kkctl
