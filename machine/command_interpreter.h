#pragma once

#include <string_view>

#include "machine/processes.h"

namespace machine {

/// The command interpreter, started as `cmd.exe /c COMMAND`. Of commands it knows `format` alone; everything else ends
/// with 1 at once, as a command that is not found does. So does a command with one of the interpreter's own characters
/// `& | < > ^` outside quotes: what they mean is not simulated. Without `/c` it waits for input that never comes.
ProcessCourse RunCommandInterpreter(Machine& machine, std::u16string_view commandLine);

}  // namespace machine
