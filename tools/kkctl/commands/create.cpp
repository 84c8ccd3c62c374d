#include "create.h"

#include <memory>

#include <CLI/CLI.hpp>

#include "arguments.h"
#include "context.h"
#include "partition_report.h"

namespace kkctl {

namespace {

struct Arguments {
    uint32_t disk = 0;
    Region region;
    uint64_t size = 0;  ///< 0: all the room
};

int RunCreate(Context& context, const Arguments& arguments)
{
    const auto start =
        context.OpenedKitForWriting().Calls().CreatePartition(arguments.disk, arguments.region, arguments.size);
    if (!start) {
        return context.Fail("creating a partition on disk " + std::to_string(arguments.disk), start.status);
    }
    ReportPartition(context, "Created", {arguments.disk, *start});
    return kExitSuccess;
}

}  // namespace

void AddCreate(CLI::App& app, Context& context)
{
    CLI::App* const command = app.add_subcommand("create", "Create a partition for data in a free region");
    const auto arguments = std::make_shared<Arguments>();
    AddDiskArgument(*command, arguments->disk);
    AddBytesArgument(*command, "START", arguments->region.start, "Where the free region starts, in bytes")->required();
    AddBytesArgument(*command, "LENGTH", arguments->region.length, "Length of the free region")->required();
    AddBytesArgument(*command, "SIZE", arguments->size, "Wanted size (default: all the room, in whole MiB)");
    command->footer(
        "The command partitions shows the free regions. On an MBR disk, do not choose one that lies within an\n"
        "extended partition: the library does not see those, and the new partition would overlap it.");
    command->callback(
        [&context, arguments] { context.command = [&context, arguments] { return RunCreate(context, *arguments); }; });
}

}  // namespace kkctl
