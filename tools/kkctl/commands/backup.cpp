#include "backup.h"

#include <memory>
#include <optional>

#include <CLI/CLI.hpp>

#include "arguments.h"
#include "backup_report.h"
#include "context.h"
#include "files.h"
#include "partition_choice.h"
#include "progress.h"

namespace kkctl {

namespace {

constexpr size_t kMaxSetIdBytes = 63;  // the library would cut a longer one

struct Arguments {
    uint32_t disk = 0;
    std::string image;
    PartitionChoice partitions;
    kestrelkit::BackupOptions options = {.usedBlocksOnly = false, .useSnapshots = false};
};

/// Says what a failed backup left behind and what to do about it.
void Explain(const Context& context, const Arguments& arguments, const Result<kestrelkit::Backup>& backup,
             bool existedBefore)
{
    std::ostream& err = context.Err();
    if (backup->isComplete) {
        err << "kkctl: the backup is complete, but the image could not be detached\n";
    } else if (existedBefore && backup.status.code == KK_STATUS_UNSUCCESSFUL) {
        err << "kkctl: " << arguments.image << " exists already; a backup never overwrites a file\n";
    } else if (!existedBefore && FileExists(arguments.image)) {
        err << "kkctl: " << arguments.image << " is incomplete; delete it\n";
    }
}

/// The disk's partitions, if they are of use: a listing takes its time.
Result<std::vector<Partition>> ListIfNeeded(const Context& context, const Kit& kit, const Arguments& arguments)
{
    const bool isNeeded = context.ErrorIsTerminal() || !arguments.partitions.numbers.empty();
    return isNeeded ? kit.Calls().ListPartitions(arguments.disk) : Result<std::vector<Partition>>();
}

Result<kestrelkit::Backup> CallLibrary(const Kit& kit, const Arguments& arguments)
{
    kestrelkit::BackupOptions options = arguments.options;
    options.partitions = arguments.partitions.ForLibrary();
    return kit.Calls().BackUp(arguments.disk, kit.ToLibraryPath(arguments.image), options);
}

int RunBackup(Context& context, const Arguments& arguments)
{
    const Kit& kit = context.OpenedKit();
    const auto partitions = ListIfNeeded(context, kit, arguments);
    if (partitions) {
        if (const std::optional<uint32_t> missing = arguments.partitions.FirstMissingIn(*partitions)) {
            context.Err() << "kkctl: disk " << arguments.disk << " has no partition " << *missing << '\n';
            return kExitUsage;
        }
    }

    const bool existedBefore = FileExists(arguments.image);
    std::optional<Progress> progress;
    if (context.ErrorIsTerminal() && partitions && !existedBefore) {
        progress.emplace(context.Err(),
                         ProgressPlan{arguments.partitions.BytesIn(*partitions), arguments.options.usedBlocksOnly},
                         [&] { return kit.ImageBytesWritten(arguments.image); });
    }
    const auto backup = CallLibrary(kit, arguments);
    progress.reset();

    if (backup->isComplete) {
        const BackupReport report = {arguments.disk, arguments.image, arguments.image + ".json", *backup};
        context.json ? PrintBackupJson(context.Out(), report) : PrintBackupText(context.Out(), report);
    }
    if (!backup) {
        const int exitCode = context.Fail("backing up disk " + std::to_string(arguments.disk), backup.status);
        Explain(context, arguments, backup, existedBefore);
        return exitCode;
    }
    return kExitSuccess;
}

void AddOptions(CLI::App& command, Arguments& arguments)
{
    AddDiskArgument(command, arguments.disk);
    command.add_option("IMAGE", arguments.image, "The VHDX file to create; it must not exist")
        ->required()
        ->type_name("");
    AddPartitionsOption(command, arguments.partitions, "Numbers of the partitions to back up (default: all)");
    command.add_flag("--used-blocks", arguments.options.usedBlocksOnly, "Copy only the clusters that NTFS has in use");
    command.add_flag("--remove-omitted", arguments.options.removeOmitted,
                     "Leave partitions that were not chosen out of the image's table, instead of keeping them empty");
    command.add_flag("--snapshots", arguments.options.useSnapshots, "Read from volume snapshots where possible");
    command.add_flag("--compact", arguments.options.compact,
                     "Pack the partitions together and make the virtual disk just large enough");
    command.add_option("--set-id", arguments.options.setId, "Names the disks backed up together (default: made up)")
        ->type_name("ID")
        ->check([](const std::string& id) {
            return id.size() <= kMaxSetIdBytes ? std::string() : "must have at most 63 bytes: " + id;
        });
    command.add_option("--set-index", arguments.options.setDiskIndex, "This disk's index within the set (default: 0)")
        ->type_name("N");
    command.add_option("--set-count", arguments.options.setDiskCount, "Number of disks in the set (default: 1)")
        ->type_name("N");
}

}  // namespace

void AddBackup(CLI::App& app, Context& context)
{
    CLI::App* const command = app.add_subcommand("backup", "Back a disk up into a new VHDX image");
    const auto arguments = std::make_shared<Arguments>();
    AddOptions(*command, *arguments);
    command->callback(
        [&context, arguments] { context.command = [&context, arguments] { return RunBackup(context, *arguments); }; });
}

}  // namespace kkctl
