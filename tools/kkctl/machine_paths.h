#pragma once

#include <string>

#include "kit.h"

namespace kkctl {

/// The machine's name of a host file: its drive Z: is the host's root. Throws PathError when there is none.
WideString MachinePath(const std::string& hostPath);

}  // namespace kkctl
