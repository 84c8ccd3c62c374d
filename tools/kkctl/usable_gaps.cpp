#include "usable_gaps.h"

namespace kkctl {

namespace {

bool HasRoom(const Region& gap, uint32_t sectorSize)
{
    constexpr uint64_t kAlignment = 1 << 20;
    const uint64_t padding = (kAlignment - gap.start % kAlignment) % kAlignment;
    return gap.length > padding && gap.length - padding >= sectorSize;
}

}  // namespace

std::vector<Region> UsableGaps(const Disk& disk, const std::vector<Partition>& partitions)
{
    std::vector<Region> gaps = kestrelkit::Gaps(disk, partitions);
    std::erase_if(gaps, [&disk](const Region& gap) { return !HasRoom(gap, disk.sectorSize); });
    return gaps;
}

}  // namespace kkctl
