#pragma once

#include <stdexcept>
#include <string>

#include "status_names.h"

namespace kkctl {

/// A call of the library failed, and with it the command.
class CallError : public std::runtime_error {
public:
    CallError(const std::string& what, Status status) : std::runtime_error(what + ": " + DescribeStatus(status)) {}
};

}  // namespace kkctl
