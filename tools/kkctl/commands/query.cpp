#include "query.h"

#include <memory>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "arguments.h"
#include "context.h"
#include "text.h"

namespace kkctl {

namespace {

int RunQuery(Context& context, uint32_t disk)
{
    const auto path = context.OpenedKit().Calls().QueryDiskImage(disk);
    if (!path) {
        return context.Fail("asking what disk " + std::to_string(disk) + " is", path.status);
    }
    const bool isImage = path->has_value();
    const std::string image = ToUtf8(path->value_or(WideString()));
    if (context.json) {
        const nlohmann::ordered_json document = {{"disk", disk}, {"isImage", isImage}, {"image", image}};
        context.Out() << document.dump(2) << '\n';
    } else if (isImage) {
        context.Out() << "Disk " << disk << " shows the image " << Printable(image) << '\n';
    } else {
        context.Out() << "Disk " << disk << " shows no image.\n";
    }
    return kExitSuccess;
}

}  // namespace

void AddQuery(CLI::App& app, Context& context)
{
    CLI::App* const command = app.add_subcommand("query", "Tell whether a disk shows an image, and which");
    const auto disk = std::make_shared<uint32_t>();
    AddDiskArgument(*command, *disk);
    command->callback([&context, disk] { context.command = [&context, disk] { return RunQuery(context, *disk); }; });
}

}  // namespace kkctl
