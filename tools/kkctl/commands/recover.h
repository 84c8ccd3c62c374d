#pragma once

namespace CLI {
class App;
}

namespace kkctl {

class Context;

/// Adds the command `recover`: restores a partition of an image into a smaller one.
void AddRecover(CLI::App& app, Context& context);

}  // namespace kkctl
