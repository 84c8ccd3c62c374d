#pragma once

#include "kit.h"

namespace CLI {
class App;
}

namespace kkctl {

/// Adds the global options that exist on this system only.
void AddHostOptions(CLI::App& app, KitOptions& options);

}  // namespace kkctl
