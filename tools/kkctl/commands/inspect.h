#pragma once

namespace CLI {
class App;
}

namespace kkctl {

class Context;

/// Adds the command `inspect`: tells what an image holds.
void AddInspect(CLI::App& app, Context& context);

}  // namespace kkctl
