#pragma once

#include <vector>

#include "kit.h"

namespace kkctl {

/// The gaps between a disk's partitions that have room for a new one: it would begin on a MiB and have a sector at
/// least. Whole gaps, where the library's FreeRegions begin on that MiB and have no rests below one: what is shown here
/// is the disk as it is, and a partition of a chosen size may well be small.
std::vector<Region> UsableGaps(const Disk& disk, const std::vector<Partition>& partitions);

}  // namespace kkctl
