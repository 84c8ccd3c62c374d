#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "kit.h"

namespace kkctl {

/// What names a partition: its disk, and where on it the partition starts.
struct Place {
    uint32_t disk = 0;
    uint64_t start = 0;
};

/// "the partition at 1048576 of disk 0".
std::string NameOf(const Place& place);

/// The name and what is known of the partition there: "... (40.0 MiB, NTFS, D:)".
std::string DescribePlace(const Place& place, const std::optional<Partition>& partition);

/// Asks the library, which takes its time, for the partition that starts there; nothing when it lists none.
std::optional<Partition> FindPartition(const Kit& kit, const Place& place);

}  // namespace kkctl
