#pragma once

namespace CLI {
class App;
}

namespace kkctl {

class Context;

/// Adds the command `reboot`: restarts the machine.
void AddReboot(CLI::App& app, Context& context);

}  // namespace kkctl
