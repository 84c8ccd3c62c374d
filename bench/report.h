#pragma once

#include <string>
#include <vector>

#include "figure.h"

namespace bench {

/// Where the figures were taken.
std::string MachineClass();

/// One line a figure, for people.
std::string TableText(const std::vector<Figure>& figures);

/// The same for scripts.
std::string JsonText(const std::vector<Figure>& figures);

}  // namespace bench
