#pragma once

namespace CLI {
class App;
}

namespace kkctl {

class Context;

/// Adds the command `partitions`: lists one disk's partitions and free regions.
void AddPartitions(CLI::App& app, Context& context);

}  // namespace kkctl
