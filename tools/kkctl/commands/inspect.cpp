#include "inspect.h"

#include <memory>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "arguments.h"
#include "context.h"
#include "partition_types.h"
#include "sizes.h"
#include "table.h"
#include "text.h"

namespace kkctl {

namespace {

bool IsGpt(const Image& contents)
{
    return contents.style == PartitionStyle::Gpt;
}

/// For an MBR the library's label is the name of the type.
std::string TypeText(const Image& contents, const ImagePartition& partition)
{
    if (!IsGpt(contents)) {
        return ToUtf8(partition.name);
    }
    const std::string name = GptTypeName(partition.typeGuid);
    return name.empty() ? FormatGuid(partition.typeGuid) : name;
}

nlohmann::ordered_json ToJson(const Image& contents, const ImagePartition& partition)
{
    return {{"number", partition.number},
            {"startOffset", partition.offset},
            {"length", partition.length},
            {"typeGuid", FormatGuid(partition.typeGuid)},
            {"typeName", IsGpt(contents) ? GptTypeName(partition.typeGuid) : ToUtf8(partition.name)},
            {"name", IsGpt(contents) ? ToUtf8(partition.name) : ""}};
}

void PrintJson(std::ostream& out, const std::string& image, const Image& contents)
{
    auto partitions = nlohmann::ordered_json::array();
    for (const ImagePartition& partition : contents.partitions) {
        partitions.push_back(ToJson(contents, partition));
    }
    const nlohmann::ordered_json document = {{"image", image},
                                             {"size", contents.virtualSize},
                                             {"sectorSize", contents.logicalSectorSize},
                                             {"blockSize", contents.blockSize},
                                             {"partitionStyle", StyleName(contents.style)},
                                             {"diskGuid", FormatGuid(contents.diskGuid)},
                                             {"partitions", partitions}};
    out << document.dump(2) << '\n';
}

void PrintPartitions(std::ostream& out, const Image& contents)
{
    if (contents.partitions.empty()) {
        out << "The image has no partitions.\n";
        return;
    }
    Table table({{"NO", Align::Right},
                 {"START", Align::Right},
                 {"LENGTH", Align::Right},
                 {"SIZE", Align::Right},
                 {"TYPE"},
                 {"NAME"}});
    for (const ImagePartition& partition : contents.partitions) {
        table.AddRow({std::to_string(partition.number), std::to_string(partition.offset),
                      std::to_string(partition.length), FormatSize(partition.length), TypeText(contents, partition),
                      IsGpt(contents) ? ToUtf8(partition.name) : ""});
    }
    table.Print(out);
}

void PrintText(std::ostream& out, const std::string& image, const Image& contents)
{
    out << "Image       " << image << '\n';
    out << "Disk size   " << FormatSize(contents.virtualSize) << " (" << contents.virtualSize << " bytes)\n";
    out << "Sector      " << contents.logicalSectorSize << " bytes\n";
    out << "Block       " << FormatSize(contents.blockSize) << '\n';
    out << "Style       " << StyleName(contents.style) << '\n';
    if (IsGpt(contents)) {
        out << "Disk GUID   " << FormatGuid(contents.diskGuid) << '\n';
    }
    out << '\n';
    PrintPartitions(out, contents);
}

int RunInspect(Context& context, const std::string& image)
{
    const Image contents = InspectImage(context.OpenedKit(), image);
    context.json ? PrintJson(context.Out(), image, contents) : PrintText(context.Out(), image, contents);
    return kExitSuccess;
}

}  // namespace

void AddInspect(CLI::App& app, Context& context)
{
    CLI::App* const command = app.add_subcommand("inspect", "Tell what an image holds");
    const auto image = std::make_shared<std::string>();
    AddImageArgument(*command, *image);
    command->callback(
        [&context, image] { context.command = [&context, image] { return RunInspect(context, *image); }; });
}

}  // namespace kkctl
