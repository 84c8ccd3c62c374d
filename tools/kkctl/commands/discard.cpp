#include "discard.h"

#include <memory>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "arguments.h"
#include "confirmation.h"
#include "context.h"
#include "files.h"

namespace kkctl {

namespace {

constexpr size_t kMaxOverlayUnits = 1019;  // the library would cut a longer path, and delete another file

/// The library deletes the file whatever it is.
void RefuseBackups(const std::string& overlay)
{
    if (FileExists(overlay + ".json")) {
        throw ArgumentError(overlay + " has a manifest beside it: it is a backup, and discard would delete it");
    }
}

int ReportFailure(const Context& context, const std::string& overlay, Status status, bool existedBefore)
{
    const int exitCode = context.Fail("detaching " + overlay, status);
    if (existedBefore && !FileExists(overlay)) {
        context.Err() << "kkctl: the file was deleted all the same\n";
    }
    return exitCode;
}

int RunDiscard(Context& context, const std::string& overlay)
{
    const Kit& kit = context.OpenedKit();
    const WideString path = LibraryPathWithin(kit, overlay, kMaxOverlayUnits, "an overlay");
    RefuseBackups(overlay);
    if (!Confirm(context, "Detach " + overlay + " and delete the file with all that was written to its disk?")) {
        return kExitFailure;
    }
    const bool existedBefore = FileExists(overlay);
    const Status status = kit.Calls().DiscardOverlay(path);
    if (status.Failed()) {
        return ReportFailure(context, overlay, status, existedBefore);
    }
    if (FileExists(overlay)) {
        context.Err() << "kkctl: " << overlay << " was detached, but the file could not be deleted\n";
        return kExitFailure;
    }
    if (context.json) {
        context.Out() << nlohmann::ordered_json{{"overlay", overlay}}.dump(2) << '\n';
    } else {
        context.Out() << "Discarded " << overlay << '\n';
    }
    return kExitSuccess;
}

}  // namespace

void AddDiscard(CLI::App& app, Context& context)
{
    CLI::App* const command = app.add_subcommand("discard", "Detach an overlay and delete its file");
    const auto overlay = std::make_shared<std::string>();
    command->add_option("OVERLAY", *overlay, "The overlay's file")->required()->type_name("");
    command->footer("The file is deleted even if it is not attached, or no overlay at all.");
    command->callback(
        [&context, overlay] { context.command = [&context, overlay] { return RunDiscard(context, *overlay); }; });
}

}  // namespace kkctl
