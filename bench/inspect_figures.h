#pragma once

#include <vector>

#include "figure.h"
#include "settings.h"

namespace bench {

/// The disk's image looked into: its size and its partitions, against two peers.
std::vector<Figure> MeasureInspections(const Settings& settings);

}  // namespace bench
