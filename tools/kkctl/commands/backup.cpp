#include "backup.h"

#include <memory>
#include <optional>

#include <CLI/CLI.hpp>

#include "arguments.h"
#include "backup_report.h"
#include "context.h"
#include "files.h"
#include "inventory.h"
#include "partition_choice.h"
#include "progress.h"

namespace kkctl {

namespace {

constexpr size_t kMaxSetIdBytes = 63;  // the library would cut a longer one

struct Arguments {
    uint32_t disk = 0;
    std::string image;
    PartitionChoice partitions;
    bool usedBlocks = false;
    bool removeOmitted = false;
    bool snapshots = false;
    bool compact = false;
    std::string setId;
    uint32_t setIndex = 0;
    uint32_t setCount = 1;
};

KK_STATUS CallLibrary(Kit& kit, const Arguments& arguments, BackupResult& result)
{
    const WideString path = kit.ToLibraryPath(arguments.image);
    return kit.Calls().backup(arguments.disk, path.c_str(), arguments.partitions.Pointer(),
                              arguments.partitions.Count(), arguments.usedBlocks ? 1 : 0,
                              arguments.removeOmitted ? 1 : 0, arguments.snapshots ? 1 : 0,
                              arguments.setId.empty() ? nullptr : arguments.setId.c_str(), arguments.setIndex,
                              arguments.setCount, arguments.compact ? 1 : 0, &result);
}

/// Says what a failed backup left behind and what to do about it.
void Explain(const Context& context, const Arguments& arguments, KK_STATUS status, bool existedBefore, bool isComplete)
{
    std::ostream& err = context.Err();
    if (isComplete) {
        err << "kkctl: the backup is complete, but the image could not be detached\n";
    } else if (existedBefore && status == KK_STATUS_UNSUCCESSFUL) {
        err << "kkctl: " << arguments.image << " exists already; a backup never overwrites a file\n";
    } else if (!existedBefore && FileExists(arguments.image)) {
        err << "kkctl: " << arguments.image << " is incomplete; delete it\n";
    }
}

int RunBackup(Context& context, const Arguments& arguments)
{
    Kit& kit = context.OpenedKit();
    std::vector<Partition> partitions;
    const bool needsList = context.ErrorIsTerminal() || arguments.partitions.Count() > 0;
    const KK_STATUS listStatus = needsList ? ListPartitions(kit, arguments.disk, partitions) : KK_STATUS_SUCCESS;
    if (needsList && listStatus >= 0) {
        if (const std::optional<uint32_t> missing = arguments.partitions.FirstMissingIn(partitions)) {
            context.Err() << "kkctl: disk " << arguments.disk << " has no partition " << *missing << '\n';
            return kExitUsage;
        }
    }

    const bool existedBefore = FileExists(arguments.image);
    BackupReport report = {arguments.disk, arguments.image, arguments.image + ".json", {}};
    constexpr uint32_t kUntouched = 0xFFFFFFFF;  // the library writes 0 there when all data was copied
    report.result.reserved12 = kUntouched;
    std::optional<Progress> progress;
    if (context.ErrorIsTerminal() && listStatus >= 0 && !existedBefore) {
        progress.emplace(context.Err(), ProgressPlan{arguments.partitions.BytesIn(partitions), arguments.usedBlocks},
                         [&] { return kit.ImageBytesWritten(arguments.image); });
    }
    const KK_STATUS status = CallLibrary(kit, arguments, report.result);
    progress.reset();

    const bool isComplete = report.result.reserved12 != kUntouched;
    if (isComplete) {
        context.json ? PrintBackupJson(context.Out(), report) : PrintBackupText(context.Out(), report);
    }
    if (status < 0) {
        const int exitCode = context.Fail("backing up disk " + std::to_string(arguments.disk), status);
        Explain(context, arguments, status, existedBefore, isComplete);
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
    command.add_flag("--used-blocks", arguments.usedBlocks, "Copy only the clusters that NTFS has in use");
    command.add_flag("--remove-omitted", arguments.removeOmitted,
                     "Leave partitions that were not chosen out of the image's table, instead of keeping them empty");
    command.add_flag("--snapshots", arguments.snapshots, "Read from volume snapshots where possible");
    command.add_flag("--compact", arguments.compact,
                     "Pack the partitions together and make the virtual disk just large enough");
    command.add_option("--set-id", arguments.setId, "Names the disks backed up together (default: made up)")
        ->type_name("ID")
        ->check([](const std::string& id) {
            return id.size() <= kMaxSetIdBytes ? std::string() : "must have at most 63 bytes: " + id;
        });
    command.add_option("--set-index", arguments.setIndex, "This disk's index within the set (default: 0)")
        ->type_name("N");
    command.add_option("--set-count", arguments.setCount, "Number of disks in the set (default: 1)")->type_name("N");
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
