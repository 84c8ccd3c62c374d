#include "overlay.h"

#include <memory>

#include <CLI/CLI.hpp>

#include "arguments.h"
#include "context.h"
#include "mounted_disk.h"

namespace kkctl {

namespace {

struct Arguments {
    std::string image;
    std::string overlay;
};

int RunOverlay(Context& context, const Arguments& arguments)
{
    const Kit& kit = context.OpenedKit();
    const WideString image = kit.ToLibraryPath(arguments.image);
    const WideString overlay = kit.ToLibraryPath(arguments.overlay);
    const auto disk = kit.Calls().MountImageOverlay(image, overlay);
    if (!disk) {
        return context.Fail("mounting " + arguments.image + " with the overlay " + arguments.overlay, disk.status);
    }
    ReportMountedDisk(context, {.image = arguments.image, .overlay = arguments.overlay, .number = *disk});
    return kExitSuccess;
}

}  // namespace

void AddOverlay(CLI::App& app, Context& context)
{
    CLI::App* const command =
        app.add_subcommand("overlay", "Attach an image as a disk, and keep what is written to it in another file");
    const auto arguments = std::make_shared<Arguments>();
    AddImageArgument(*command, arguments->image);
    command->add_option("OVERLAY", arguments->overlay, "The file to create for the changes; it must not exist")
        ->required()
        ->type_name("");
    command->footer(
        "The image is never changed, and must not be as long as the overlay exists; discard ends it. In the\n"
        "simulated machine, which is one run of kkctl, use overlay in the shell.");
    command->callback(
        [&context, arguments] { context.command = [&context, arguments] { return RunOverlay(context, *arguments); }; });
}

}  // namespace kkctl
