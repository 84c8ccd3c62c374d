#pragma once

#include <vector>

#include "figure.h"
#include "settings.h"

namespace bench {

/// How fast a GPT's checksums are taken, for the usual table and for the largest that is accepted.
std::vector<Figure> MeasureChecksums(const Settings& settings);

}  // namespace bench
