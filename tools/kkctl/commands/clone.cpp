#include "clone.h"

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
    std::string source;
    std::string target;
    bool extends = false;
};

int RunClone(Context& context, const Arguments& arguments)
{
    const Kit& kit = context.OpenedKitForWriting();
    const WideString source = VolumePath(kit, arguments.source);
    const WideString target = VolumePath(kit, arguments.target);
    if (source == target) {
        throw ArgumentError("source and target are the same volume");
    }
    if (!Confirm(context, "Overwrite " + arguments.target + " with a copy of " + arguments.source +
                              " and lose all that is on it?")) {
        return kExitFailure;
    }
    auto progress = ShowWrites(context, ProgressPlan());
    const Status status = kit.Calls().CloneVolume(source, target, arguments.extends);
    progress.reset();
    if (status.Failed()) {
        return context.Fail("cloning " + arguments.source + " onto " + arguments.target, status);
    }
    if (context.json) {
        const nlohmann::ordered_json document = {{"source", arguments.source}, {"target", arguments.target}};
        context.Out() << document.dump(2) << '\n';
    } else {
        context.Out() << "Cloned " << arguments.source << " onto " << arguments.target << '\n';
    }
    return kExitSuccess;
}

}  // namespace

void AddClone(CLI::App& app, Context& context)
{
    CLI::App* const command = app.add_subcommand("clone", "Copy a volume onto another one");
    const auto arguments = std::make_shared<Arguments>();
    AddVolumeArgument(*command, "SOURCE", arguments->source);
    AddVolumeArgument(*command, "TARGET", arguments->target);
    command->add_flag("--extend", arguments->extends, "Let an NTFS file system grow to the target's size afterwards");
    command->footer(
        "Clone volumes that nobody writes to: the source is not locked. The copy ends, without a failure, at the\n"
        "first place of the source that cannot be read.");
    command->callback(
        [&context, arguments] { context.command = [&context, arguments] { return RunClone(context, *arguments); }; });
}

}  // namespace kkctl
