#pragma once

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

namespace kkctl {

/// Reads whole numbers with commas between them, "1,3"; nothing when the text is anything else, or empty.
std::optional<std::vector<uint32_t>> ParseNumberList(std::string_view text);

}  // namespace kkctl
