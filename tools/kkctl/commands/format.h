#pragma once

namespace CLI {
class App;
}

namespace kkctl {

class Context;

/// Adds the command `format`: puts a file system on a partition.
void AddFormat(CLI::App& app, Context& context);

}  // namespace kkctl
