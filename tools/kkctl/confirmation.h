#pragma once

#include <string>

#include "context.h"
#include "place.h"

namespace kkctl {

/// Asks a person at a terminal whether to go on, unless --yes was given; without a terminal the answer is yes. After a
/// no it says that nothing was done.
bool Confirm(const Context& context, const std::string& question);

/// Asks about what is to happen to a partition, and tells what is known of it: "VERB the partition at ... CONSEQUENCE?"
bool ConfirmForPartition(Context& context, const std::string& verb, const Place& place, const std::string& consequence);

}  // namespace kkctl
