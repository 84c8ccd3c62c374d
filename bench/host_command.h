#pragma once

#include <string>
#include <vector>

#include "figure.h"

namespace bench {

/// Runs a program of the host to its end and returns what that took. What it prints goes nowhere. Throws
/// std::runtime_error when it does not start or does not end with 0.
Cost TimeCommand(const std::vector<std::string>& words);

}  // namespace bench
