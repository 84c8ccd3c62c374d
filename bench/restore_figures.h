#pragma once

#include <vector>

#include "figure.h"
#include "settings.h"

namespace bench {

/// An image of the disk restored onto a raw file that exists, against two peers.
std::vector<Figure> MeasureRestores(const Settings& settings);

/// The disk's volume cloned onto a raw file that exists.
std::vector<Figure> MeasureClone(const Settings& settings);

/// How fast a chunk of zeros is known as such.
std::vector<Figure> MeasureZeroTest(const Settings& settings);

}  // namespace bench
