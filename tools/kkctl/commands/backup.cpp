#include "backup.h"

#include <algorithm>
#include <filesystem>
#include <memory>
#include <optional>

#include <CLI/CLI.hpp>

#include "arguments.h"
#include "backup_report.h"
#include "context.h"
#include "inventory.h"
#include "number_list.h"
#include "progress.h"

namespace kkctl {

namespace {

constexpr size_t kMaxSetIdBytes = 63;  // the library would cut a longer one

struct Arguments {
    uint32_t disk = 0;
    std::string image;
    std::string partitionList;
    std::vector<uint32_t> partitions;  ///< empty: all
    bool usedBlocks = false;
    bool removeOmitted = false;
    bool snapshots = false;
    bool compact = false;
    std::string setId;
    uint32_t setIndex = 0;
    uint32_t setCount = 1;
};

bool FileExists(const std::string& path)
{
    std::error_code error;
    return std::filesystem::exists(std::filesystem::path(std::u8string(path.begin(), path.end())), error);
}

bool IsChosen(const Arguments& arguments, uint32_t number)
{
    const auto& chosen = arguments.partitions;
    return chosen.empty() || std::find(chosen.begin(), chosen.end(), number) != chosen.end();
}

/// The first chosen number that no partition has: the library would silently leave it out of the backup.
std::optional<uint32_t> FindMissing(const Arguments& arguments, const std::vector<Partition>& partitions)
{
    for (const uint32_t number : arguments.partitions) {
        const auto hasNumber = [number](const Partition& partition) { return partition.number == number; };
        if (std::none_of(partitions.begin(), partitions.end(), hasNumber)) {
            return number;
        }
    }
    return std::nullopt;
}

ProgressPlan PlanOf(const Arguments& arguments, const std::vector<Partition>& partitions)
{
    ProgressPlan plan = {0, arguments.usedBlocks};
    for (const Partition& partition : partitions) {
        plan.bytes += IsChosen(arguments, partition.number) ? partition.length : 0;
    }
    return plan;
}

KK_STATUS CallLibrary(Kit& kit, const Arguments& arguments, BackupResult& result)
{
    const WideString path = kit.ToLibraryPath(arguments.image);
    return kit.Calls().backup(arguments.disk, path.c_str(),
                              arguments.partitions.empty() ? nullptr : arguments.partitions.data(),
                              static_cast<uint32_t>(arguments.partitions.size()), arguments.usedBlocks ? 1 : 0,
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
    const bool needsList = context.ErrorIsTerminal() || !arguments.partitions.empty();
    const KK_STATUS listStatus = needsList ? ListPartitions(kit, arguments.disk, partitions) : KK_STATUS_SUCCESS;
    if (needsList && listStatus >= 0) {
        if (const std::optional<uint32_t> missing = FindMissing(arguments, partitions)) {
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
        progress.emplace(context.Err(), PlanOf(arguments, partitions),
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
    command.add_option("--partitions", arguments.partitionList, "Numbers of the partitions to back up (default: all)")
        ->type_name("N,N,...")
        ->check([&arguments](const std::string& text) {
            const auto numbers = ParseNumberList(text);
            arguments.partitions = numbers.value_or(std::vector<uint32_t>{});
            return numbers ? std::string() : "must be numbers with commas between them: " + text;
        });
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
