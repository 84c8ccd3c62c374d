#pragma once

#include <string>
#include <vector>

#include "context.h"

namespace kkctl {

/// Reads one command line (without the program's name) and carries it out; returns the exit code.
int RunCommandLine(const std::vector<std::string>& arguments, const Environment& environment);

}  // namespace kkctl
