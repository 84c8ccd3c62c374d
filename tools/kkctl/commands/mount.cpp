#include "mount.h"

#include <memory>

#include <CLI/CLI.hpp>

#include "arguments.h"
#include "context.h"
#include "mounted_disk.h"

namespace kkctl {

namespace {

int RunMount(Context& context, const std::string& image)
{
    const Kit& kit = context.OpenedKit();
    const auto disk = kit.Calls().MountImage(kit.ToLibraryPath(image));
    if (!disk) {
        return context.Fail("mounting " + image, disk.status);
    }
    ReportMountedDisk(context, {.image = image, .number = *disk});
    return kExitSuccess;
}

}  // namespace

void AddMount(CLI::App& app, Context& context)
{
    CLI::App* const command = app.add_subcommand("mount", "Attach an image as a disk");
    const auto image = std::make_shared<std::string>();
    AddImageArgument(*command, *image);
    command->footer(
        "What is written to the disk changes the image; overlay attaches it without that. The disk stays until\n"
        "unmount or a restart; in the simulated machine, which is one run of kkctl, use mount in the shell.");
    command->callback([&context, image] { context.command = [&context, image] { return RunMount(context, *image); }; });
}

}  // namespace kkctl
