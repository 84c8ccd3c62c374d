#pragma once

namespace CLI {
class App;
}

namespace kkctl {

class Context;

/// Adds the command `unmount`: detaches the disk that shows an image.
void AddUnmount(CLI::App& app, Context& context);

}  // namespace kkctl
