#include "machine/snapshot_view.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>

namespace machine {

SnapshotView::SnapshotView(std::shared_ptr<Volume> volume)
    : volume_(std::move(volume)), extents_(volume_->Extents()), length_(volume_->Length())
{
    uint64_t extentBase = 0;
    for (const Extent& extent : extents_) {
        const auto keep = [this, extentBase, start = extent.start,
                           end = extent.start + extent.length](uint64_t offset, uint64_t length) {
            const uint64_t from = std::max(offset, start);
            const uint64_t to = std::min(offset + length, end);
            if (from < to) {
                KeepBefore(extentBase + (from - start), to - from);
            }
        };
        watches_.push_back({extent.disk, extent.disk->AddWriteObserver(keep)});
        extentBase += extent.length;
    }
}

bool SnapshotView::Read(uint64_t offset, std::span<uint8_t> into)
{
    if (discarded_ || offset > length_ || into.size() > length_ - offset || !ReadExtents(extents_, offset, into)) {
        return false;
    }
    const uint64_t end = offset + into.size();
    for (uint64_t block = offset / kBlockBytes; !kept_.empty() && block * kBlockBytes < end; ++block) {
        if (const auto kept = kept_.find(block); kept != kept_.end()) {
            const uint64_t from = std::max(offset, block * kBlockBytes);
            const uint64_t to = std::min(end, (block + 1) * kBlockBytes);
            std::memcpy(&into[from - offset], &kept->second[from - block * kBlockBytes], to - from);
        }
    }
    return true;
}

void SnapshotView::Discard()
{
    for (const Watch& watch : watches_) {
        watch.disk->RemoveWriteObserver(watch.token);
    }
    watches_.clear();
    kept_.clear();
    discarded_ = true;
}

uint64_t SnapshotView::KeptBytes() const
{
    uint64_t total = 0;
    for (const auto& [block, bytes] : kept_) {
        total += bytes.size();
    }
    return total;
}

void SnapshotView::KeepBefore(uint64_t volumeOffset, uint64_t length)
{
    const uint64_t end = volumeOffset + length;
    for (uint64_t block = volumeOffset / kBlockBytes; block * kBlockBytes < end; ++block) {
        if (kept_.contains(block)) {
            continue;
        }
        std::vector<uint8_t> bytes(std::min(kBlockBytes, length_ - block * kBlockBytes));
        if (!ReadExtents(extents_, block * kBlockBytes, bytes)) {
            throw std::runtime_error("a snapshot cannot read what is about to be overwritten");
        }
        kept_.emplace(block, std::move(bytes));
    }
}

}  // namespace machine
