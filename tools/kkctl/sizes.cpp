#include "sizes.h"

#include <array>
#include <charconv>

namespace kkctl {

std::string FormatSize(uint64_t bytes)
{
    constexpr std::array<const char*, 6> kUnits = {" KiB", " MiB", " GiB", " TiB", " PiB", " EiB"};
    if (bytes < 1024) {
        return std::to_string(bytes) + " B";
    }
    size_t unit = 0;
    unsigned shift = 10;
    while ((bytes >> shift) >= 1024) {
        ++unit;
        shift += 10;
    }
    const uint64_t whole = bytes >> shift;
    // Cut, not rounded: a size never looks larger than it is, and 1023.96 cannot turn into 1024.0.
    const uint64_t rest = shift > 10 ? (bytes >> (shift - 10)) & 1023 : bytes & 1023;
    return std::to_string(whole) + "." + std::to_string(rest * 10 / 1024) + kUnits[unit];
}

std::optional<uint64_t> ParseSize(std::string_view text)
{
    uint64_t number = 0;
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc() || end - rest > 1) {
        return std::nullopt;
    }
    unsigned shift = 0;
    if (rest != end) {
        constexpr std::string_view kLetters = "KMGTkmgt";
        const size_t letter = kLetters.find(*rest);
        if (letter == std::string_view::npos) {
            return std::nullopt;
        }
        shift = 10 * (static_cast<unsigned>(letter % 4) + 1);
    }
    if (number > (UINT64_MAX >> shift)) {
        return std::nullopt;
    }
    return number << shift;
}

}  // namespace kkctl
