#include "number_list.h"

#include <charconv>

namespace kkctl {

std::optional<std::vector<uint32_t>> ParseNumberList(std::string_view text)
{
    std::vector<uint32_t> numbers;
    const char* position = text.data();
    const char* const end = position + text.size();
    while (true) {
        uint32_t number = 0;
        const auto [rest, error] = std::from_chars(position, end, number);
        if (error != std::errc() || (rest != end && *rest != ',')) {
            return std::nullopt;
        }
        numbers.push_back(number);
        if (rest == end) {
            return numbers;
        }
        position = rest + 1;
    }
}

}  // namespace kkctl
