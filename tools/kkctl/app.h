#pragma once

#include <string>
#include <vector>

#include "context.h"

namespace kkctl {

/// Reads one command line (without the program's name) and carries it out; returns the exit code.
int RunCommandLine(const std::vector<std::string>& arguments, const Environment& environment);

/// The same for a line of the shell: the library is loaded already, and options that say which one do not exist.
int RunShellLine(const std::vector<std::string>& arguments, Context& context);

}  // namespace kkctl
