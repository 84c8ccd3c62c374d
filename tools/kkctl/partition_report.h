#pragma once

#include <string>

#include "context.h"
#include "place.h"

namespace kkctl {

/// Tells what was done to a partition and how the library sees it now: "DONE the partition at ... (40.0 MiB, NTFS)", or
/// a JSON object of where it lies, its length, file system and letter.
void ReportPartition(Context& context, const std::string& done, const Place& place);

}  // namespace kkctl
