#pragma once

namespace CLI {
class App;
}

namespace kkctl {

class Context;

/// Adds the command `delete`: deletes a partition.
void AddDelete(CLI::App& app, Context& context);

}  // namespace kkctl
