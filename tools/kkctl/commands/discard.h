#pragma once

namespace CLI {
class App;
}

namespace kkctl {

class Context;

/// Adds the command `discard`: detaches an overlay and deletes its file.
void AddDiscard(CLI::App& app, Context& context);

}  // namespace kkctl
