#pragma once

#include "figure.h"
#include "settings.h"

namespace bench {

/// The library's ways of filling and copying memory, against libc's.
std::vector<Figure> MeasurePrimitives(const Settings& settings);

}  // namespace bench
