#include "place.h"

#include <algorithm>

#include "sizes.h"
#include "text.h"

namespace kkctl {

namespace {

/// NTFS never spans its last sector, and a rest below a cluster; only what is more than that is worth a word.
constexpr uint64_t kNoticeableRest = 1 << 20;

std::string DescribeFileSystem(const Partition& partition)
{
    const uint64_t size = partition.fileSystemSize;
    const bool isSmaller = size != 0 && size < partition.length && partition.length - size >= kNoticeableRest;
    return Printable(ToUtf8(partition.fileSystemName)) + (isSmaller ? " of only " + FormatSize(size) : "");
}

}  // namespace

std::string NameOf(const Place& place)
{
    return "the partition at " + std::to_string(place.start) + " of disk " + std::to_string(place.disk);
}

std::string DescribePlace(const Place& place, const std::optional<Partition>& partition)
{
    if (!partition) {
        return NameOf(place);
    }
    std::string details = FormatSize(partition->length);
    for (const std::string& detail : {DescribeFileSystem(*partition), Printable(ToUtf8(partition->driveLetter))}) {
        details += detail.empty() ? "" : ", " + detail;
    }
    return NameOf(place) + " (" + details + ")";
}

std::optional<Partition> FindPartition(const Kit& kit, const Place& place)
{
    const auto partitions = kit.Calls().ListPartitions(place.disk);
    const auto found = std::ranges::find(*partitions, place.start, &Partition::startOffset);
    return found != partitions->end() ? std::optional(*found) : std::nullopt;
}

}  // namespace kkctl
