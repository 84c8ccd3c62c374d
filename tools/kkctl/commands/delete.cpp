#include "delete.h"

#include <memory>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "arguments.h"
#include "confirmation.h"
#include "context.h"

namespace kkctl {

namespace {

int RunDelete(Context& context, const Place& place)
{
    const Kit& kit = context.OpenedKitForWriting();
    if (!ConfirmForPartition(context, "Delete", place, "and lose all that is on it")) {
        return kExitFailure;
    }
    const Status status = kit.Calls().DeletePartition(place.disk, place.start);
    if (status.Failed()) {
        return context.Fail("deleting " + NameOf(place), status);
    }
    if (context.json) {
        const nlohmann::ordered_json document = {{"disk", place.disk}, {"startOffset", place.start}};
        context.Out() << document.dump(2) << '\n';
    } else {
        context.Out() << "Deleted " << NameOf(place) << '\n';
    }
    return kExitSuccess;
}

}  // namespace

void AddDelete(CLI::App& app, Context& context)
{
    CLI::App* const command = app.add_subcommand("delete", "Delete a partition");
    const auto place = std::make_shared<Place>();
    AddPlaceArguments(*command, *place);
    command->callback(
        [&context, place] { context.command = [&context, place] { return RunDelete(context, *place); }; });
}

}  // namespace kkctl
