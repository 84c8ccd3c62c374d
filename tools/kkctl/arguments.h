#pragma once

#include <cstdint>
#include <string>

#include "image_source.h"
#include "partition_choice.h"
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

/// Adds the argument IMAGE.
void AddImageArgument(CLI::App& command, std::string& image);

/// Adds the arguments IMAGE and PARTITION, which name a partition in an image.
void AddImageSourceArguments(CLI::App& command, ImageSource& source);

/// Adds an argument that names a volume, for VolumePath.
void AddVolumeArgument(CLI::App& command, const std::string& name, std::string& volume);

/// Adds the option --partitions.
void AddPartitionsOption(CLI::App& command, PartitionChoice& choice, const std::string& description);

}  // namespace kkctl
