#include "shrink.h"

#include <memory>

#include <CLI/CLI.hpp>

#include "arguments.h"
#include "confirmation.h"
#include "context.h"
#include "partition_report.h"
#include "sizes.h"

namespace kkctl {

namespace {

struct Arguments {
    Place place;
    uint64_t size = 0;
};

int RunShrink(Context& context, const Arguments& arguments)
{
    const Kit& kit = context.OpenedKitForWriting();
    const Place& place = arguments.place;
    const std::string size = FormatSize(arguments.size) + " (" + std::to_string(arguments.size) + " bytes)";
    if (!ConfirmForPartition(context, "Shrink", place, "to " + size)) {
        return kExitFailure;
    }
    const Status status = kit.Calls().ShrinkPartition(place.disk, place.start, arguments.size);
    if (status.Failed()) {
        return context.Fail("shrinking " + NameOf(place), status);
    }
    ReportPartition(context, "Shrunk", place);
    return kExitSuccess;
}

}  // namespace

void AddShrink(CLI::App& app, Context& context)
{
    CLI::App* const command = app.add_subcommand("shrink", "Make a partition and its file system smaller");
    const auto arguments = std::make_shared<Arguments>();
    AddPlaceArguments(*command, arguments->place);
    AddBytesArgument(*command, "SIZE", arguments->size, "The whole new size, rounded up to whole MiB")->required();
    command->callback(
        [&context, arguments] { context.command = [&context, arguments] { return RunShrink(context, *arguments); }; });
}

}  // namespace kkctl
