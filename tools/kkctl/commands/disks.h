#pragma once

namespace CLI {
class App;
}

namespace kkctl {

class Context;

/// Adds the command `disks`: lists the physical disks.
void AddDisks(CLI::App& app, Context& context);

}  // namespace kkctl
