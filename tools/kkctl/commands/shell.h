#pragma once

namespace CLI {
class App;
}

namespace kkctl {

class Context;

/// Adds the command `shell`: carries out commands from standard input, one a line.
void AddShell(CLI::App& app, Context& context);

}  // namespace kkctl
