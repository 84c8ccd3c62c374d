#include "arguments.h"

#include <CLI/CLI.hpp>

#include "sizes.h"

namespace kkctl {

void AddDiskArgument(CLI::App& command, uint32_t& disk)
{
    command.add_option("DISK", disk, "Number of the disk")->required()->type_name("");
}

CLI::Option* AddBytesArgument(CLI::App& command, const std::string& name, uint64_t& bytes,
                              const std::string& description)
{
    const auto parse = [&bytes](const CLI::results_t& texts) {
        const std::optional<uint64_t> parsed = ParseSize(texts.front());
        bytes = parsed.value_or(0);
        return parsed.has_value();
    };
    return command.add_option(name, parse, description)->type_name("");
}

void AddPlaceArguments(CLI::App& command, Place& place)
{
    AddDiskArgument(command, place.disk);
    AddBytesArgument(command, "OFFSET", place.start, "Where the partition starts, in bytes")->required();
}

}  // namespace kkctl
