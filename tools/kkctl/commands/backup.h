#pragma once

namespace CLI {
class App;
}

namespace kkctl {

class Context;

/// Adds the command `backup`: backs a disk up into a new image.
void AddBackup(CLI::App& app, Context& context);

}  // namespace kkctl
