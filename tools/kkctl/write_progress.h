#pragma once

#include <memory>

#include "context.h"
#include "progress.h"

namespace kkctl {

/// Shows on a terminal, until the object goes, what the program has written since; null without a terminal. For calls
/// whose target does not tell how far they are.
std::unique_ptr<Progress> ShowWrites(const Context& context, const ProgressPlan& plan);

}  // namespace kkctl
