#include "partitions.h"

#include <algorithm>
#include <memory>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "arguments.h"
#include "context.h"
#include "partition_types.h"
#include "sizes.h"
#include "table.h"
#include "text.h"
#include "usable_gaps.h"

namespace kkctl {

namespace {

struct Arguments {
    uint32_t disk = 0;
    bool isLong = false;
};

struct Contents {
    std::vector<Partition> partitions;
    std::vector<Region> freeRegions;
};

bool IsGpt(const Partition& partition)
{
    return partition.typeGuid != GuidBytes{};
}

std::string KnownTypeName(const Partition& partition)
{
    return IsGpt(partition) ? GptTypeName(partition.typeGuid) : MbrTypeName(partition.mbrType);
}

std::string TypeNumber(const Partition& partition)
{
    if (IsGpt(partition)) {
        return FormatGuid(partition.typeGuid);
    }
    constexpr char kDigits[] = "0123456789ABCDEF";
    return {'0', 'x', kDigits[partition.mbrType >> 4], kDigits[partition.mbrType & 15]};
}

std::string TypeText(const Partition& partition)
{
    const std::string name = KnownTypeName(partition);
    return name.empty() ? TypeNumber(partition) : name;
}

nlohmann::ordered_json ToJson(const Partition& partition)
{
    return {{"number", partition.number},
            {"startOffset", partition.startOffset},
            {"length", partition.length},
            {"typeGuid", FormatGuid(partition.typeGuid)},
            {"mbrType", partition.mbrType},
            {"typeName", KnownTypeName(partition)},
            {"name", ToUtf8(partition.name)},
            {"driveLetter", ToUtf8(partition.driveLetter)},
            {"fileSystemSize", partition.fileSystemSize},
            {"fileSystemName", ToUtf8(partition.fileSystemName)},
            {"deviceName", ToUtf8(partition.deviceName)},
            {"volumePath", ToUtf8(partition.volumePath)}};
}

void PrintJson(std::ostream& out, uint32_t disk, const Contents& contents)
{
    auto partitions = nlohmann::ordered_json::array();
    for (const Partition& partition : contents.partitions) {
        partitions.push_back(ToJson(partition));
    }
    auto freeRegions = nlohmann::ordered_json::array();
    for (const Region& region : contents.freeRegions) {
        freeRegions.push_back({{"startOffset", region.start}, {"length", region.length}});
    }
    const nlohmann::ordered_json document = {{"disk", disk}, {"partitions", partitions}, {"freeRegions", freeRegions}};
    out << document.dump(2) << '\n';
}

void PrintTable(std::ostream& out, const std::vector<Partition>& partitions, bool isLong)
{
    std::vector<Column> columns = {{"NO", Align::Right},
                                   {"START", Align::Right},
                                   {"LENGTH", Align::Right},
                                   {"SIZE", Align::Right},
                                   {"TYPE"},
                                   {"NAME"},
                                   {"FS"},
                                   {"LETTER"},
                                   {"DEVICE"}};
    if (isLong) {
        columns.insert(columns.end(), {{"FS BYTES", Align::Right}, {"TYPE NUMBER"}, {"VOLUME"}});
    }
    Table table(columns);
    for (const Partition& partition : partitions) {
        std::vector<std::string> row = {std::to_string(partition.number),
                                        std::to_string(partition.startOffset),
                                        std::to_string(partition.length),
                                        FormatSize(partition.length),
                                        TypeText(partition),
                                        ToUtf8(partition.name),
                                        ToUtf8(partition.fileSystemName),
                                        ToUtf8(partition.driveLetter),
                                        ToUtf8(partition.deviceName)};
        if (isLong) {
            row.insert(row.end(), {partition.fileSystemSize == 0 ? "" : std::to_string(partition.fileSystemSize),
                                   TypeNumber(partition), ToUtf8(partition.volumePath)});
        }
        table.AddRow(row);
    }
    table.Print(out);
}

void PrintFreeRegions(std::ostream& out, const std::vector<Region>& regions)
{
    Table table({{"FREE FROM", Align::Right}, {"LENGTH", Align::Right}, {"SIZE", Align::Right}});
    for (const Region& region : regions) {
        table.AddRow({std::to_string(region.start), std::to_string(region.length), FormatSize(region.length)});
    }
    out << '\n';
    table.Print(out);
}

/// A disk that the library leaves out of its list has no free regions that could be told.
Result<Contents> Look(const Kit& kit, uint32_t diskNumber)
{
    const auto partitions = kit.Calls().ListPartitions(diskNumber);
    if (!partitions) {
        return {partitions.status};
    }
    const auto disks = kit.Calls().ListDisks();
    const auto disk = std::ranges::find(*disks, diskNumber, &Disk::number);
    const bool isListed = disk != disks->end();
    return {disks.status, {*partitions, isListed ? UsableGaps(*disk, *partitions) : std::vector<Region>()}};
}

int ShowPartitions(Context& context, const Arguments& arguments)
{
    const auto contents = Look(context.OpenedKit(), arguments.disk);
    if (!contents) {
        return context.Fail("listing the partitions of disk " + std::to_string(arguments.disk), contents.status);
    }
    std::ostream& out = context.Out();
    if (context.json) {
        PrintJson(out, arguments.disk, *contents);
        return kExitSuccess;
    }
    if (contents->partitions.empty()) {
        out << "Disk " << arguments.disk << " has no partitions.\n";
    } else {
        PrintTable(out, contents->partitions, arguments.isLong);
    }
    if (!contents->freeRegions.empty()) {
        PrintFreeRegions(out, contents->freeRegions);
    }
    return kExitSuccess;
}

}  // namespace

void AddPartitions(CLI::App& app, Context& context)
{
    CLI::App* const command =
        app.add_subcommand("partitions", "List one disk's partitions and the free regions between them");
    const auto arguments = std::make_shared<Arguments>();
    AddDiskArgument(*command, arguments->disk);
    command->add_flag("--long,-l", arguments->isLong, "Show type numbers, file-system sizes and volume paths too");
    command->callback([&context, arguments] {
        context.command = [&context, arguments] { return ShowPartitions(context, *arguments); };
    });
}

}  // namespace kkctl
