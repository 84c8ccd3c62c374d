#pragma once

namespace CLI {
class App;
}

namespace kkctl {

class Context;

/// Adds the command `query`: tells which image a disk shows.
void AddQuery(CLI::App& app, Context& context);

}  // namespace kkctl
