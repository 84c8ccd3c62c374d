#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "support/shell.h"

// Small DLLs for the loader's tests, compiled on the spot by the same compiler and linker that build the shipped one.

namespace machine::test {

/// Compiles `source` (C) to `folder`/tiny.dll; `linkerOptions` are handed to the linker. Throws std::runtime_error.
std::filesystem::path BuildTinyDll(const std::filesystem::path& folder, const std::string& source,
                                   const std::vector<std::string>& linkerOptions = {});

std::vector<uint8_t> ReadBytes(const std::filesystem::path& file);
void WriteBytes(const std::filesystem::path& file, const std::vector<uint8_t>& bytes);

}  // namespace machine::test
