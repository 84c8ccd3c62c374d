#include "query.h"

#include <memory>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "arguments.h"
#include "context.h"
#include "text.h"

namespace kkctl {

namespace {

constexpr uint32_t kLongestPathUnits = 32768;

int RunQuery(Context& context, uint32_t disk)
{
    uint32_t isImage = 0;
    WideString path(kLongestPathUnits, KkWideChar{0});
    const KK_STATUS status = context.OpenedKit().Calls().queryDiskImage(disk, &isImage, path.data(), kLongestPathUnits);
    if (status < 0) {
        return context.Fail("asking what disk " + std::to_string(disk) + " is", status);
    }
    const std::string image = ToUtf8(path.c_str());
    if (context.json) {
        const nlohmann::ordered_json document = {{"disk", disk}, {"isImage", isImage != 0}, {"image", image}};
        context.Out() << document.dump(2) << '\n';
    } else if (isImage != 0) {
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
