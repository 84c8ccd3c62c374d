#include "restore_free.h"

#include <memory>

#include <CLI/CLI.hpp>

#include "arguments.h"
#include "context.h"
#include "partition_report.h"
#include "write_progress.h"

namespace kkctl {

namespace {

struct Arguments {
    ImageSource source;
    uint32_t disk = 0;
    Region region;
    bool keepsSize = false;
};

/// Where the new partition is: the library does not tell, but the region was free. The region's own start when the
/// partition is not listed yet.
Place FindNewPartition(const Kit& kit, const Arguments& arguments)
{
    const auto partitions = kit.Calls().ListPartitions(arguments.disk);
    Place place = {arguments.disk, arguments.region.start};
    uint64_t distance = arguments.region.length;
    for (const Partition& partition : *partitions) {
        const bool isBehind = partition.startOffset >= arguments.region.start;
        if (isBehind && partition.startOffset - arguments.region.start < distance) {
            distance = partition.startOffset - arguments.region.start;
            place.start = partition.startOffset;
        }
    }
    return place;
}

int RunRestoreFree(Context& context, const Arguments& arguments)
{
    const Kit& kit = context.OpenedKitForWriting();
    const ImagePartition partition = FindInImage(kit, arguments.source);
    const WideString image = kit.ToLibraryPath(arguments.source.image);
    auto progress = ShowWrites(context, {partition.length, true});
    const Status status =
        kit.Calls().RestoreToFreeSpace(image, partition.number, arguments.disk, arguments.region, arguments.keepsSize);
    progress.reset();
    if (status.Failed()) {
        return context.Fail("restoring " + NameOf(arguments.source) + " into free space of disk " +
                                std::to_string(arguments.disk),
                            status);
    }
    ReportPartition(context, "Restored " + NameOf(arguments.source) + " as", FindNewPartition(kit, arguments));
    return kExitSuccess;
}

}  // namespace

void AddRestoreFree(CLI::App& app, Context& context)
{
    CLI::App* const command =
        app.add_subcommand("restore-free", "Put a partition of an image into a free region of a disk, as a new one");
    const auto arguments = std::make_shared<Arguments>();
    AddImageSourceArguments(*command, arguments->source);
    AddDiskArgument(*command, arguments->disk);
    AddBytesArgument(*command, "START", arguments->region.start, "Where the free region starts, in bytes")->required();
    AddBytesArgument(*command, "LENGTH", arguments->region.length, "Length of the free region")->required();
    command->add_flag("--keep-size", arguments->keepsSize,
                      "Make the new partition as large as it is in the image, not as the region");
    command->footer(
        "The command partitions shows the free regions. On an MBR disk, do not choose one that lies within an\n"
        "extended partition: the library does not see those, and the new partition would overlap it.");
    command->callback([&context, arguments] {
        context.command = [&context, arguments] { return RunRestoreFree(context, *arguments); };
    });
}

}  // namespace kkctl
