#pragma once

namespace machine {

class Modules;

/// Registers kernel32.dll: mount points, letters, the system folder and CloseHandle.
void AddKernel32(Modules& modules);

}  // namespace machine
