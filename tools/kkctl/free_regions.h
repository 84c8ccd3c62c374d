#pragma once

#include <cstdint>
#include <vector>

#include "inventory.h"

namespace kkctl {

/// Bytes of a disk.
struct Region {
    uint64_t start = 0;
    uint64_t length = 0;

    bool operator==(const Region&) const = default;
};

/// The gaps between a disk's partitions that have room for a new one: it would begin on a MiB and have a sector at
/// least. Nothing before the first MiB, in the last 34 sectors of a GPT disk or past what an MBR can address; none at
/// all on a disk without a table. Partitions may come in any order, overlap and reach past the disk.
std::vector<Region> FreeRegions(const Disk& disk, const std::vector<Partition>& partitions);

}  // namespace kkctl
