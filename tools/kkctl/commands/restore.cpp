#include "restore.h"

#include <algorithm>
#include <memory>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "arguments.h"
#include "confirmation.h"
#include "context.h"
#include "targets.h"
#include "write_progress.h"

namespace kkctl {

namespace {

struct Arguments {
    std::string image;
    std::string target;
    PartitionChoice partitions;
    bool writesTable = false;
};

/// "disk 1", or the file or device.
std::string TargetName(const Arguments& arguments)
{
    return (DiskNumberIn(arguments.target) ? "disk " : "") + arguments.target;
}

/// "partitions 1,3 of x.vhdx".
std::string SourceName(const Arguments& arguments)
{
    std::string numbers;
    for (const uint32_t number : arguments.partitions.numbers) {
        numbers += (numbers.empty() ? "partitions " : ",") + std::to_string(number);
    }
    return (numbers.empty() ? "all partitions" : numbers) + " of " + arguments.image;
}

/// The library takes no notice of numbers that do not exist, and writes a table for the image's sectors.
void CheckAgainst(const Kit& kit, const Image& contents, const Arguments& arguments)
{
    if (contents.style == PartitionStyle::Mbr) {
        throw ArgumentError(arguments.image +
                            " has an MBR, and restore needs a GPT; restore-free and restore-volume take both");
    }
    if (const std::optional<uint32_t> missing = arguments.partitions.FirstMissingIn(contents.partitions)) {
        throw ArgumentError(arguments.image + " has no partition " + std::to_string(*missing));
    }
    const std::optional<uint32_t> number = DiskNumberIn(arguments.target);
    const auto disks = kit.Calls().ListDisks();
    const auto disk = std::ranges::find(*disks, number, [](const Disk& one) { return std::optional(one.number); });
    if (disk != disks->end() && disk->sectorSize != contents.logicalSectorSize) {
        throw ArgumentError("the image has sectors of " + std::to_string(contents.logicalSectorSize) + " bytes, disk " +
                            arguments.target + " of " + std::to_string(disk->sectorSize));
    }
}

void Report(Context& context, const Image& contents, const Arguments& arguments)
{
    if (!context.json) {
        context.Out() << "Restored " << SourceName(arguments) << " onto " << TargetName(arguments)
                      << (arguments.writesTable ? ", with a new partition table" : "") << '\n';
        return;
    }
    auto numbers = nlohmann::ordered_json::array();
    for (const ImagePartition& partition : contents.partitions) {
        if (arguments.partitions.Includes(partition.number)) {
            numbers.push_back(partition.number);
        }
    }
    const nlohmann::ordered_json document = {{"image", arguments.image},
                                             {"target", arguments.target},
                                             {"partitions", numbers},
                                             {"tableWritten", arguments.writesTable}};
    context.Out() << document.dump(2) << '\n';
}

int RunRestore(Context& context, const Arguments& arguments)
{
    const Kit& kit = context.OpenedKitForWriting();
    const Image contents = InspectImage(kit, arguments.image);
    CheckAgainst(kit, contents, arguments);
    const WideString image = kit.ToLibraryPath(arguments.image);
    const WideString target = DiskPath(kit, arguments.target);
    if (!Confirm(context, "Restore " + SourceName(arguments) + " onto " + TargetName(arguments) +
                              (arguments.writesTable ? ", replace its partition table" : "") +
                              " and lose what is there?")) {
        return kExitFailure;
    }
    auto progress = ShowWrites(context, {arguments.partitions.BytesIn(contents.partitions), true});
    const Status status =
        kit.Calls().RestorePartitions(image, target, arguments.partitions.ForLibrary(), arguments.writesTable);
    progress.reset();
    if (status.Failed()) {
        return context.Fail("restoring " + SourceName(arguments) + " onto " + TargetName(arguments), status);
    }
    Report(context, contents, arguments);
    return kExitSuccess;
}

}  // namespace

void AddRestore(CLI::App& app, Context& context)
{
    CLI::App* const command =
        app.add_subcommand("restore", "Put partitions of an image back onto a disk, where they were");
    const auto arguments = std::make_shared<Arguments>();
    AddImageArgument(*command, arguments->image);
    command->add_option("TARGET", arguments->target, "Number of the disk, or a file of its size")
        ->required()
        ->type_name("");
    AddPartitionsOption(*command, arguments->partitions, "Numbers of the partitions to restore (default: all)");
    command->add_flag("--write-table", arguments->writesTable,
                      "Write a new GPT with these partitions first, instead of leaving the disk's table as it is");
    command->footer(
        "The image must have a GPT. Choose a disk without mounted volumes: nothing is locked. What was on the\n"
        "disk shows through where the image has long runs of zeros.");
    command->callback(
        [&context, arguments] { context.command = [&context, arguments] { return RunRestore(context, *arguments); }; });
}

}  // namespace kkctl
