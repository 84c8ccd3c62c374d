#pragma once

#include "kestrelkit/kestrelkit.h"

namespace kk {

/// Runs a program without a window and waits for it, at most two minutes. `commandLine` is written to by the system.
/// Needs kernel32 bound with CreateProcessW. KK_STATUS_UNSUCCESSFUL when it does not start, does not end in time (it
/// goes on then) or ends with an exit code other than 0.
[[nodiscard]] KK_STATUS RunHidden(const char16_t* application, char16_t* commandLine);

}  // namespace kk
