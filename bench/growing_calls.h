#pragma once

#include <filesystem>

namespace bench {

/// Counts calls on something small and on something twice as large, under names that end in "-x1" and "-x2".
void CountGrowingCalls(const std::filesystem::path& folder);

}  // namespace bench
