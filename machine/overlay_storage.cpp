#include "machine/overlay_storage.h"

namespace machine {

bool OverlayStorage::Read(uint64_t offset, std::span<uint8_t> into)
{
    if (!parent_->Read(offset, into)) {
        return false;
    }
    for (const RangeList::Range& range : changes_->Written().Within(offset, into.size())) {
        if (!changes_->Read(range.start, into.subspan(range.start - offset, range.end - range.start))) {
            return false;
        }
    }
    return true;
}

std::vector<Stretch> OverlayStorage::DataIn(uint64_t offset, uint64_t length) const
{
    RangeList data;
    for (const Stretch& stretch : parent_->DataIn(offset, length)) {
        data.Add(stretch.offset, stretch.length);
    }
    for (const RangeList::Range& range : changes_->Written().Within(offset, length)) {
        data.Add(range.start, range.end - range.start);
    }
    std::vector<Stretch> stretches;
    for (const RangeList::Range& range : data.All()) {
        stretches.push_back({range.start, range.end - range.start});
    }
    return stretches;
}

}  // namespace machine
