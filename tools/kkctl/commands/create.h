#pragma once

namespace CLI {
class App;
}

namespace kkctl {

class Context;

/// Adds the command `create`: creates a partition in a free region.
void AddCreate(CLI::App& app, Context& context);

}  // namespace kkctl
