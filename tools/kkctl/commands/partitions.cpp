#include "partitions.h"

#include <memory>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "context.h"
#include "inventory.h"
#include "sizes.h"
#include "table.h"

namespace kkctl {

namespace {

struct Arguments {
    uint32_t disk = 0;
    bool isLong = false;
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

void PrintJson(std::ostream& out, uint32_t disk, const std::vector<Partition>& partitions)
{
    nlohmann::ordered_json list = nlohmann::ordered_json::array();
    for (const Partition& partition : partitions) {
        list.push_back({{"number", partition.number},
                        {"startOffset", partition.startOffset},
                        {"length", partition.length},
                        {"typeGuid", FormatGuid(partition.typeGuid)},
                        {"mbrType", partition.mbrType},
                        {"typeName", KnownTypeName(partition)},
                        {"name", partition.name},
                        {"driveLetter", partition.driveLetter},
                        {"fileSystemSize", partition.fileSystemSize},
                        {"fileSystemName", partition.fileSystemName},
                        {"deviceName", partition.deviceName},
                        {"volumePath", partition.volumePath}});
    }
    out << nlohmann::ordered_json{{"disk", disk}, {"partitions", list}}.dump(2) << '\n';
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
                                        partition.name,
                                        partition.fileSystemName,
                                        partition.driveLetter,
                                        partition.deviceName};
        if (isLong) {
            row.insert(row.end(), {partition.fileSystemSize == 0 ? "" : std::to_string(partition.fileSystemSize),
                                   TypeNumber(partition), partition.volumePath});
        }
        table.AddRow(row);
    }
    table.Print(out);
}

int ShowPartitions(Context& context, const Arguments& arguments)
{
    std::vector<Partition> partitions;
    const KK_STATUS status = ListPartitions(context.OpenedKit(), arguments.disk, partitions);
    if (status < 0) {
        return context.Fail("listing the partitions of disk " + std::to_string(arguments.disk), status);
    }
    if (context.json) {
        PrintJson(context.Out(), arguments.disk, partitions);
    } else if (partitions.empty()) {
        context.Out() << "Disk " << arguments.disk << " has no partitions.\n";
    } else {
        PrintTable(context.Out(), partitions, arguments.isLong);
    }
    return kExitSuccess;
}

}  // namespace

void AddPartitions(CLI::App& app, Context& context)
{
    CLI::App* const command = app.add_subcommand("partitions", "List one disk's partitions");
    const auto arguments = std::make_shared<Arguments>();
    command->add_option("DISK", arguments->disk, "Number of the disk")->required()->type_name("");
    command->add_flag("--long,-l", arguments->isLong, "Show type numbers, file-system sizes and volume paths too");
    command->callback([&context, arguments] {
        context.command = [&context, arguments] { return ShowPartitions(context, *arguments); };
    });
}

}  // namespace kkctl
