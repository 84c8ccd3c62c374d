#include "machine/tracked_storage.h"

#include <algorithm>

namespace machine {

void RangeList::Add(uint64_t start, uint64_t length)
{
    if (length == 0) {
        return;
    }
    uint64_t end = start + length;
    auto next = ends_.upper_bound(start);
    if (next != ends_.begin() && std::prev(next)->second >= start) {
        --next;
        start = next->first;
    }
    while (next != ends_.end() && next->first <= end) {
        end = std::max(end, next->second);
        next = ends_.erase(next);
    }
    ends_[start] = end;
}

bool RangeList::Intersects(uint64_t start, uint64_t length) const
{
    const auto next = ends_.upper_bound(start);
    if (length == 0) {
        return false;
    }
    if (next != ends_.begin() && std::prev(next)->second > start) {
        return true;
    }
    return next != ends_.end() && next->first < start + length;
}

std::vector<RangeList::Range> RangeList::Within(uint64_t start, uint64_t length) const
{
    const uint64_t end = start + length;
    auto next = ends_.upper_bound(start);
    if (next != ends_.begin() && std::prev(next)->second > start) {
        --next;
    }
    std::vector<Range> ranges;
    for (; next != ends_.end() && next->first < end; ++next) {
        ranges.push_back({std::max(next->first, start), std::min(next->second, end)});
    }
    return ranges;
}

std::vector<RangeList::Range> RangeList::All() const
{
    std::vector<Range> ranges;
    for (const auto& [start, end] : ends_) {
        ranges.push_back({start, end});
    }
    return ranges;
}

uint64_t RangeList::TotalBytes() const
{
    uint64_t total = 0;
    for (const auto& [start, end] : ends_) {
        total += end - start;
    }
    return total;
}

bool TrackedStorage::Write(uint64_t offset, std::span<const uint8_t> from)
{
    if (!bytes_.Write(offset, from)) {
        return false;
    }
    written_.Add(offset, from.size());
    writeSizes_.push_back(from.size());
    return true;
}

bool TrackedStorage::Flush()
{
    ++flushCount_;
    return true;
}

std::vector<uint64_t> TrackedStorage::WrittenBlocks(uint64_t blockBytes) const
{
    std::vector<uint64_t> blocks;
    for (const RangeList::Range& range : written_.All()) {
        uint64_t block = range.start / blockBytes;
        if (!blocks.empty() && blocks.back() == block) {
            ++block;
        }
        for (; block * blockBytes < range.end; ++block) {
            blocks.push_back(block);
        }
    }
    return blocks;
}

}  // namespace machine
