#include "mountpoint.h"

#include <memory>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "arguments.h"
#include "context.h"
#include "files.h"

namespace kkctl {

namespace {

constexpr size_t kMaxDirectoryUnits = 517;  // the library would cut a longer one

struct Arguments {
    Place place;
    std::string directory;
};

int RunMountpoint(Context& context, const Arguments& arguments)
{
    const Kit& kit = context.OpenedKit();
    const Place& place = arguments.place;
    const WideString path = LibraryPathWithin(kit, arguments.directory, kMaxDirectoryUnits, "a mount point");
    const Status status = kit.Calls().AddMountPoint(place.disk, place.start, path);
    if (status.Failed()) {
        return context.Fail("mounting " + NameOf(place) + " on " + arguments.directory, status);
    }
    if (context.json) {
        const nlohmann::ordered_json document = {
            {"disk", place.disk}, {"startOffset", place.start}, {"directory", arguments.directory}};
        context.Out() << document.dump(2) << '\n';
    } else {
        context.Out() << "Mounted " << NameOf(place) << " on " << arguments.directory << '\n';
    }
    return kExitSuccess;
}

}  // namespace

void AddMountpoint(CLI::App& app, Context& context)
{
    CLI::App* const command = app.add_subcommand("mountpoint", "Mount a partition's volume on a folder too");
    const auto arguments = std::make_shared<Arguments>();
    AddPlaceArguments(*command, arguments->place);
    command->add_option("DIR", arguments->directory, "The folder; it must be there, empty, on an NTFS volume")
        ->required()
        ->type_name("");
    command->callback([&context, arguments] {
        context.command = [&context, arguments] { return RunMountpoint(context, *arguments); };
    });
}

}  // namespace kkctl
