#include "disks.h"

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "context.h"
#include "partition_types.h"
#include "sizes.h"
#include "table.h"

namespace kkctl {

namespace {

void PrintJson(std::ostream& out, const std::vector<Disk>& disks)
{
    nlohmann::ordered_json list = nlohmann::ordered_json::array();
    for (const Disk& disk : disks) {
        list.push_back({{"number", disk.number},
                        {"size", disk.size},
                        {"sectorSize", disk.sectorSize},
                        {"partitionStyle", StyleName(disk.style)},
                        {"partitionCount", disk.partitionCount}});
    }
    out << nlohmann::ordered_json{{"disks", list}}.dump(2) << '\n';
}

void PrintTable(std::ostream& out, const std::vector<Disk>& disks)
{
    if (disks.empty()) {
        out << "There is no disk that can be read.\n";
        return;
    }
    Table table({{"DISK", Align::Right},
                 {"SIZE", Align::Right},
                 {"BYTES", Align::Right},
                 {"SECTOR", Align::Right},
                 {"STYLE"},
                 {"PARTITIONS", Align::Right}});
    for (const Disk& disk : disks) {
        table.AddRow({std::to_string(disk.number), FormatSize(disk.size), std::to_string(disk.size),
                      std::to_string(disk.sectorSize), StyleName(disk.style), std::to_string(disk.partitionCount)});
    }
    table.Print(out);
}

int ShowDisks(Context& context)
{
    const auto disks = context.OpenedKit().Calls().ListDisks();
    if (!disks) {
        return context.Fail("listing the disks", disks.status);
    }
    context.json ? PrintJson(context.Out(), *disks) : PrintTable(context.Out(), *disks);
    return kExitSuccess;
}

}  // namespace

void AddDisks(CLI::App& app, Context& context)
{
    CLI::App* const command = app.add_subcommand("disks", "List the physical disks");
    command->callback([&context] { context.command = [&context] { return ShowDisks(context); }; });
}

}  // namespace kkctl
