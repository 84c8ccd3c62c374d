#pragma once

namespace machine {

class Modules;

/// Registers kernel32.dll: mount points, letters, the system folder, processes and CloseHandle.
void AddKernel32(Modules& modules);

/// The part of it that starts processes and waits for them.
void AddKernel32Processes(Modules& modules);

}  // namespace machine
