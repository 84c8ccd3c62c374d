#pragma once

namespace CLI {
class App;
}

namespace kkctl {

class Context;

/// Adds the command `mount`: attaches an image as a disk.
void AddMount(CLI::App& app, Context& context);

}  // namespace kkctl
