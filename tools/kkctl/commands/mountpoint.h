#pragma once

namespace CLI {
class App;
}

namespace kkctl {

class Context;

/// Adds the command `mountpoint`: mounts a partition's volume on a folder.
void AddMountpoint(CLI::App& app, Context& context);

}  // namespace kkctl
