#pragma once

#include "figure.h"
#include "settings.h"

namespace bench {

/// What the library makes of one full answer to a bitmap request, for one pattern each, against a loop over the bits.
std::vector<Figure> MeasureBitmapScans(const Settings& settings);

}  // namespace bench
