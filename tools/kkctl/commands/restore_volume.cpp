#include "restore_volume.h"

#include <memory>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "arguments.h"
#include "confirmation.h"
#include "context.h"
#include "targets.h"
#include "write_progress.h"

namespace kkctl {

namespace {

struct Arguments {
    ImageSource source;
    std::string volume;
    bool extends = false;
};

int RunRestoreVolume(Context& context, const Arguments& arguments)
{
    const Kit& kit = context.OpenedKitForWriting();
    const ImagePartition partition = FindInImage(kit, arguments.source);
    const WideString image = kit.ToLibraryPath(arguments.source.image);
    const WideString volume = VolumePath(kit, arguments.volume);
    if (!Confirm(context, "Overwrite " + arguments.volume + " with " + NameOf(arguments.source) +
                              " and lose all that is on it?")) {
        return kExitFailure;
    }
    auto progress = ShowWrites(context, {partition.length, true});
    const Status status = kit.Calls().RestoreToVolume(image, partition.number, volume, arguments.extends);
    progress.reset();
    if (status.Failed()) {
        return context.Fail("restoring " + NameOf(arguments.source) + " onto " + arguments.volume, status);
    }
    if (context.json) {
        const nlohmann::ordered_json document = {
            {"image", arguments.source.image}, {"partition", arguments.source.partition}, {"volume", arguments.volume}};
        context.Out() << document.dump(2) << '\n';
    } else {
        context.Out() << "Restored " << NameOf(arguments.source) << " onto " << arguments.volume << '\n';
    }
    return kExitSuccess;
}

}  // namespace

void AddRestoreVolume(CLI::App& app, Context& context)
{
    CLI::App* const command = app.add_subcommand("restore-volume", "Overwrite a volume with a partition of an image");
    const auto arguments = std::make_shared<Arguments>();
    AddImageSourceArguments(*command, arguments->source);
    AddVolumeArgument(*command, "VOLUME", arguments->volume);
    command->add_flag("--extend", arguments->extends, "Let an NTFS file system grow to the volume's size afterwards");
    command->callback([&context, arguments] {
        context.command = [&context, arguments] { return RunRestoreVolume(context, *arguments); };
    });
}

}  // namespace kkctl
