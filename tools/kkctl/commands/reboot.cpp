#include "reboot.h"

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "confirmation.h"
#include "context.h"

namespace kkctl {

namespace {

int RunReboot(Context& context)
{
    const Kit& kit = context.OpenedKit();
    if (!Confirm(context, "Restart the machine now and lose what other programs have not saved?")) {
        return kExitFailure;
    }
    const Status status = kit.Calls().Reboot();
    if (status.Failed()) {
        return context.Fail("restarting the machine", status);
    }
    if (context.json) {
        const nlohmann::ordered_json document = {{"restart", true}, {"simulated", kit.IsSimulated()}};
        context.Out() << document.dump(2) << '\n';
    } else {
        context.Out() << (kit.IsSimulated() ? "A real machine would restart now; the simulated one goes on.\n"
                                            : "The machine restarts.\n");
    }
    return kExitSuccess;
}

}  // namespace

void AddReboot(CLI::App& app, Context& context)
{
    CLI::App* const command = app.add_subcommand("reboot", "Restart the machine at once");
    command->callback([&context] { context.command = [&context] { return RunReboot(context); }; });
}

}  // namespace kkctl
