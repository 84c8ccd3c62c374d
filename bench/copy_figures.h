#pragma once

#include <vector>

#include "figure.h"
#include "settings.h"

namespace bench {

/// A whole backup of disk.raw to a raw image, against `dd` of the same bytes between the same files.
std::vector<Figure> MeasureWholeCopy(const Settings& settings);

/// A backup of the clusters in use, against `ntfsclone` of the same volume from a file of its own.
std::vector<Figure> MeasureUsedBlockCopy(const Settings& settings);

}  // namespace bench
