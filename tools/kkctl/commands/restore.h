#pragma once

namespace CLI {
class App;
}

namespace kkctl {

class Context;

/// Adds the command `restore`: puts partitions of an image back onto a disk.
void AddRestore(CLI::App& app, Context& context);

}  // namespace kkctl
