#pragma once

#include <cstdint>
#include <string>

#include <kestrelkit/kestrelkit_types.hpp>

namespace kkctl {

using kestrelkit::GuidBytes;

/// Text of a GUID in its on-disk byte order, lower case, without braces.
std::string FormatGuid(const GuidBytes& guid);

const char* StyleName(kestrelkit::PartitionStyle style);

/// Name of a GPT partition type; empty when it is not a well-known one.
std::string GptTypeName(const GuidBytes& type);

/// Name of an MBR partition type; empty when it is not a well-known one.
std::string MbrTypeName(uint8_t type);

}  // namespace kkctl
