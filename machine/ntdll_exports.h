#pragma once

namespace machine {

/// An entry point of the machine's ntdll, for a loader that binds imports by name; null when there is none.
void* FindNtdllExport(const char* name);

}  // namespace machine
