#pragma once

namespace CLI {
class App;
}

namespace kkctl {

class Context;

/// Adds the command `overlay`: attaches an image as a disk whose changes go into another file.
void AddOverlay(CLI::App& app, Context& context);

}  // namespace kkctl
