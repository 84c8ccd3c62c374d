#pragma once

#include <string>

#include "kit.h"

namespace kkctl {

/// A status for people: "0xC00000BB KK_STATUS_NOT_SUPPORTED (the operation does not apply here)".
std::string DescribeStatus(Status status);

}  // namespace kkctl
