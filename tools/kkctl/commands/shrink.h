#pragma once

namespace CLI {
class App;
}

namespace kkctl {

class Context;

/// Adds the command `shrink`: makes a partition smaller.
void AddShrink(CLI::App& app, Context& context);

}  // namespace kkctl
