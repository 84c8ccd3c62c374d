#pragma once

#include <string>
#include <vector>

#include "machine/journal.h"

/// What a call did to disks, volumes and the mount manager, a line a step: "open drive 0 for writing",
/// "read drive 0 at 512", "lock volume 1", "close drive 0"... Opens of volumes that do not exist are left out, as is
/// everything of a volume lookup but its opens and closes.
std::vector<std::string> EditSteps(const machine::Journal& journal);
