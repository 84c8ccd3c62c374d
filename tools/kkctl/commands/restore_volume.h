#pragma once

namespace CLI {
class App;
}

namespace kkctl {

class Context;

/// Adds the command `restore-volume`: overwrites a volume with a partition of an image.
void AddRestoreVolume(CLI::App& app, Context& context);

}  // namespace kkctl
