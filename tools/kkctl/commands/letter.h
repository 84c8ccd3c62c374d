#pragma once

namespace CLI {
class App;
}

namespace kkctl {

class Context;

/// Adds the command `letter`: gives a partition's volume a drive letter or takes it away.
void AddLetter(CLI::App& app, Context& context);

}  // namespace kkctl
