#include "arguments.h"

#include <CLI/CLI.hpp>

#include "number_list.h"
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

void AddImageArgument(CLI::App& command, std::string& image)
{
    command.add_option("IMAGE", image, "The VHDX file")->required()->type_name("");
}

void AddImageSourceArguments(CLI::App& command, ImageSource& source)
{
    AddImageArgument(command, source.image);
    command.add_option("PARTITION", source.partition, "Number of the partition in the image, as inspect shows it")
        ->required()
        ->type_name("");
}

void AddVolumeArgument(CLI::App& command, const std::string& name, std::string& volume)
{
    command.add_option(name, volume, "A volume: DISK@OFFSET of its partition, D:, the system's name for it, or a file")
        ->required()
        ->type_name("");
}

void AddPartitionsOption(CLI::App& command, PartitionChoice& choice, const std::string& description)
{
    const auto parse = [&choice](const CLI::results_t& texts) {
        choice.numbers = ParseNumberList(texts.front()).value_or(std::vector<uint32_t>{});
        return !choice.numbers.empty();
    };
    command.add_option("--partitions", parse, description)->type_name("N,N,...")->check([](const std::string& text) {
        return ParseNumberList(text) ? std::string() : "must be numbers with commas between them: " + text;
    });
}

}  // namespace kkctl
