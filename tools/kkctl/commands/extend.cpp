#include "extend.h"

#include <memory>

#include <CLI/CLI.hpp>

#include "arguments.h"
#include "context.h"
#include "partition_report.h"

namespace kkctl {

namespace {

struct Arguments {
    Place place;
    uint64_t size = 0;  ///< 0: all the room
};

int RunExtend(Context& context, const Arguments& arguments)
{
    const Place& place = arguments.place;
    const Status status =
        context.OpenedKitForWriting().Calls().ExtendPartition(place.disk, place.start, arguments.size);
    if (status.Failed()) {
        return context.Fail("extending " + NameOf(place), status);
    }
    ReportPartition(context, "Extended", place);
    return kExitSuccess;
}

}  // namespace

void AddExtend(CLI::App& app, Context& context)
{
    CLI::App* const command =
        app.add_subcommand("extend", "Make a partition larger, and its file system if that can grow");
    const auto arguments = std::make_shared<Arguments>();
    AddPlaceArguments(*command, arguments->place);
    AddBytesArgument(*command, "SIZE", arguments->size, "The whole new size (default: all the room behind it)");
    command->footer(
        "On an MBR disk, name a size where an extended partition lies near: the library does not see those.");
    command->callback(
        [&context, arguments] { context.command = [&context, arguments] { return RunExtend(context, *arguments); }; });
}

}  // namespace kkctl
