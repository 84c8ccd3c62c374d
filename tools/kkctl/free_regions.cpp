#include "free_regions.h"

#include <algorithm>

namespace kkctl {

namespace {

constexpr uint64_t kAlignment = 1 << 20;
constexpr uint64_t kGptEndSectors = 34;
constexpr uint64_t kMbrSectors = 1ull << 32;

uint64_t EndOf(const Partition& partition)
{
    return partition.startOffset + std::min(partition.length, UINT64_MAX - partition.startOffset);
}

/// The end of what the disk's table can give to partitions.
uint64_t UsableEnd(const Disk& disk)
{
    if (disk.partitionStyle == KK_PARTITION_STYLE_GPT) {
        return disk.size - std::min(disk.size, kGptEndSectors * disk.sectorSize);
    }
    return std::min(disk.size, kMbrSectors * disk.sectorSize);
}

bool HasRoom(uint64_t start, uint64_t end, uint32_t sectorSize)
{
    const uint64_t padding = (kAlignment - start % kAlignment) % kAlignment;
    return end > start && end - start > padding && end - start - padding >= sectorSize;
}

}  // namespace

std::vector<Region> FreeRegions(const Disk& disk, const std::vector<Partition>& partitions)
{
    if (disk.partitionStyle == KK_PARTITION_STYLE_RAW) {
        return {};
    }
    std::vector<Partition> inOrder = partitions;
    std::ranges::sort(inOrder, {}, &Partition::startOffset);

    std::vector<Region> regions;
    uint64_t position = kAlignment;
    const uint64_t end = UsableEnd(disk);
    const auto addUpTo = [&](uint64_t next) {
        if (HasRoom(position, next, disk.sectorSize)) {
            regions.push_back({position, next - position});
        }
    };
    for (const Partition& partition : inOrder) {
        addUpTo(std::min(partition.startOffset, end));
        position = std::max(position, EndOf(partition));
    }
    addUpTo(end);
    return regions;
}

}  // namespace kkctl
