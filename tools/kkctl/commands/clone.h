#pragma once

namespace CLI {
class App;
}

namespace kkctl {

class Context;

/// Adds the command `clone`: copies a volume onto another one.
void AddClone(CLI::App& app, Context& context);

}  // namespace kkctl
