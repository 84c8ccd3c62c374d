#include "unmount.h"

#include <memory>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "arguments.h"
#include "context.h"

namespace kkctl {

namespace {

int RunUnmount(Context& context, const std::string& image)
{
    const Kit& kit = context.OpenedKit();
    const Status status = kit.Calls().UnmountImage(kit.ToLibraryPath(image));
    if (status.Failed()) {
        return context.Fail("unmounting " + image, status);
    }
    if (context.json) {
        context.Out() << nlohmann::ordered_json{{"image", image}}.dump(2) << '\n';
    } else {
        context.Out() << "Unmounted " << image << '\n';
    }
    return kExitSuccess;
}

}  // namespace

void AddUnmount(CLI::App& app, Context& context)
{
    CLI::App* const command = app.add_subcommand("unmount", "Detach the disk that shows an image");
    const auto image = std::make_shared<std::string>();
    AddImageArgument(*command, *image);
    command->footer("The system is not asked whether the disk's volumes are in use.");
    command->callback(
        [&context, image] { context.command = [&context, image] { return RunUnmount(context, *image); }; });
}

}  // namespace kkctl
