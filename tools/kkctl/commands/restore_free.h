#pragma once

namespace CLI {
class App;
}

namespace kkctl {

class Context;

/// Adds the command `restore-free`: puts a partition of an image into a free region of a disk.
void AddRestoreFree(CLI::App& app, Context& context);

}  // namespace kkctl
