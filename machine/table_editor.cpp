#include "machine/table_editor.h"

#include <algorithm>
#include <cstddef>

namespace machine {

namespace {

constexpr size_t kPrimarySlots = 4;

int64_t EndOf(const kk::PartitionInformationEx& partition)
{
    return partition.startingOffset + partition.partitionLength;
}

bool IsContainer(const kk::PartitionInformationEx& partition)
{
    return partition.style == kk::WirePartitionStyle::Mbr && IsExtendedContainer(partition.mbr.partitionType);
}

bool LiesInside(const kk::PartitionInformationEx& partition, const kk::PartitionInformationEx& container)
{
    return IsContainer(container) && container.startingOffset < partition.startingOffset &&
           partition.startingOffset < EndOf(container);
}

/// The first byte behind the partition that it may not have.
int64_t EndLimit(const Layout& layout, const kk::PartitionInformationEx& partition, int64_t diskBytes)
{
    int64_t limit = diskBytes;
    if (layout.header.partitionStyle == kk::WirePartitionStyle::Gpt) {
        limit = std::min(limit, layout.header.gpt.startingUsableOffset + layout.header.gpt.usableLength);
    }
    for (size_t i = 0; i < layout.partitions.size(); ++i) {
        const kk::PartitionInformationEx& other = layout.partitions[i];
        if (other.startingOffset > partition.startingOffset) {
            limit = std::min(limit, other.startingOffset);
        } else if (i < kPrimarySlots && LiesInside(partition, other)) {
            limit = std::min(limit, EndOf(other));
        }
    }
    return limit;
}

/// A logical drive but the first hangs on a link of the chain, which spans boot record and drive and so follows it.
void FollowInLink(Layout& layout, const kk::PartitionInformationEx& drive)
{
    for (size_t i = kPrimarySlots; i < layout.partitions.size(); ++i) {
        kk::PartitionInformationEx& link = layout.partitions[i];
        if (LiesInside(drive, link)) {
            link.partitionLength = EndOf(drive) - link.startingOffset;
        }
    }
}

}  // namespace

Status ResizePartition(Storage& storage, uint32_t sectorSize, Layout& layout, uint32_t number, int64_t difference)
{
    const auto partition =
        std::find_if(layout.partitions.begin(), layout.partitions.end(),
                     [number](const kk::PartitionInformationEx& entry) { return entry.partitionNumber == number; });
    int64_t length = 0;
    if (number == 0 || partition == layout.partitions.end() ||
        __builtin_add_overflow(partition->partitionLength, difference, &length) || length <= 0 ||
        length % sectorSize != 0) {
        return kInvalidParameter;
    }
    if (partition->startingOffset == 0) {
        return kNotSupported;  // the whole medium is one file system, without a table
    }
    const int64_t limit = EndLimit(layout, *partition, static_cast<int64_t>(storage.Size()));
    if (length > limit - partition->startingOffset) {
        return kInvalidParameter;
    }
    const bool isGpt = layout.header.partitionStyle == kk::WirePartitionStyle::Gpt;
    const auto resize = isGpt ? &ResizeGptEntry : &ResizeMbrEntry;
    const Status status = resize(storage, sectorSize, static_cast<uint64_t>(partition->startingOffset) / sectorSize,
                                 static_cast<uint64_t>(length) / sectorSize);
    if (status == kSuccess) {
        partition->partitionLength = length;
        FollowInLink(layout, *partition);
    }
    return status;
}

}  // namespace machine
