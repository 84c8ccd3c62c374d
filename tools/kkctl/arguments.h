#pragma once

#include <cstdint>
#include <string>

#include "place.h"

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace kkctl {

/// Adds the argument DISK.
void AddDiskArgument(CLI::App& command, uint32_t& disk);

/// Adds an argument that is a number of bytes, with K, M, G or T behind it if that is handy.
CLI::Option* AddBytesArgument(CLI::App& command, const std::string& name, uint64_t& bytes,
                              const std::string& description);

/// Adds the arguments DISK and OFFSET, which name a partition.
void AddPlaceArguments(CLI::App& command, Place& place);

}  // namespace kkctl
