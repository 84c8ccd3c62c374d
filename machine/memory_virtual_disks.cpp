#include "machine/memory_virtual_disks.h"

#include <algorithm>
#include <utility>

namespace machine {
namespace {

/// A disk's own storage, which leads to an image's bytes and leaves them behind when the disk goes.
class AttachedStorage final : public Storage {
public:
    explicit AttachedStorage(std::shared_ptr<Storage> bytes) : bytes_(std::move(bytes)) {}

    uint64_t Size() const override { return bytes_->Size(); }
    bool Read(uint64_t offset, std::span<uint8_t> into) override { return bytes_->Read(offset, into); }
    bool Write(uint64_t offset, std::span<const uint8_t> from) override { return bytes_->Write(offset, from); }
    bool Flush() override { return bytes_->Flush(); }

private:
    std::shared_ptr<Storage> bytes_;
};

}  // namespace

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

uint32_t MemoryVirtualDisks::Create(const NewImage& image)
{
    images_[image.file] = {image, std::make_shared<TrackedStorage>(image.sizeBytes)};
    return kErrorSuccess;
}

uint32_t MemoryVirtualDisks::Open(const std::filesystem::path& file, OpenedImage& disk)
{
    const auto found = images_.find(file);
    if (found == images_.end()) {
        return kErrorFileNotFound;
    }
    disk = {.storage = std::make_unique<AttachedStorage>(found->second.bytes),
            .sectorBytes = found->second.shape.sectorBytes};
    return kErrorSuccess;
}

std::shared_ptr<TrackedStorage> MemoryVirtualDisks::ImageBytes(const std::filesystem::path& file) const
{
    const auto found = images_.find(file);
    return found != images_.end() ? found->second.bytes : nullptr;
}

const NewImage* MemoryVirtualDisks::ImageShape(const std::filesystem::path& file) const
{
    const auto found = images_.find(file);
    return found != images_.end() ? &found->second.shape : nullptr;
}

}  // namespace machine
