#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace kkctl {

/// Writes a size for people: "512 B", "1.5 MiB", "2.0 TiB".
std::string FormatSize(uint64_t bytes);

/// Reads a whole number with an optional K, M, G or T (each 1024 times the one before) in either case.
/// Nothing for any other text and for what 64 bits cannot hold.
std::optional<uint64_t> ParseSize(std::string_view text);

}  // namespace kkctl
