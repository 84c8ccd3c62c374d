#pragma once

namespace CLI {
class App;
}

namespace kkctl {

class Context;

/// Adds the command `extend`: makes a partition larger.
void AddExtend(CLI::App& app, Context& context);

}  // namespace kkctl
