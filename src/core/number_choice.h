#pragma once

#include <cstdint>

namespace kk {

/// Numbers that a caller chose, in the caller's memory. A count of 0 chooses every number, a null array with a
/// count above 0 none.
struct NumberChoice {
    const uint32_t* numbers;
    uint32_t count;
};

[[nodiscard]] inline bool IsChosen(const NumberChoice& choice, uint32_t number)
{
    if (choice.count == 0) {
        return true;
    }
    for (uint32_t i = 0; choice.numbers != nullptr && i < choice.count; ++i) {
        if (choice.numbers[i] == number) {
            return true;
        }
    }
    return false;
}

}  // namespace kk
