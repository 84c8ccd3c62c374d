#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <vector>

#include "machine/storage.h"
#include "machine/virtual_disk_back_end.h"

namespace machine {

/// Byte ranges in rising order, none touching another.
class RangeList {
public:
    struct Range {
        uint64_t start;
        uint64_t end;  // exclusive
        friend bool operator==(const Range&, const Range&) = default;
    };

    void Add(uint64_t start, uint64_t length);
    bool Intersects(uint64_t start, uint64_t length) const;
    std::vector<Range> All() const;
    uint64_t TotalBytes() const;

private:
    std::map<uint64_t, uint64_t> ends_;  // by start
};

/// The bytes of an in-memory image, and which of them were ever written.
class TrackedStorage final : public Storage {
public:
    explicit TrackedStorage(uint64_t size) : bytes_(size) {}

    uint64_t Size() const override { return bytes_.Size(); }
    bool Read(uint64_t offset, std::span<uint8_t> into) override { return bytes_.Read(offset, into); }
    bool Write(uint64_t offset, std::span<const uint8_t> from) override;
    bool Flush() override;

    const RangeList& Written() const { return written_; }
    /// The length of every write, in order.
    const std::vector<uint64_t>& WriteSizes() const { return writeSizes_; }
    uint64_t FlushCount() const { return flushCount_; }

    /// Numbers of the image's blocks of `blockBytes` that a file format would have to hold.
    std::vector<uint64_t> WrittenBlocks(uint64_t blockBytes = 2 << 20) const;

private:
    MemoryStorage bytes_;
    RangeList written_;
    std::vector<uint64_t> writeSizes_;
    uint64_t flushCount_ = 0;
};

/// Images that live in memory, found by their path; nothing appears on the host. Takes any geometry.
class MemoryVirtualDisks final : public VirtualDiskBackEnd {
public:
    bool Knows(const std::filesystem::path& file) const override { return images_.contains(file); }
    uint32_t Create(const NewImage& image) override;
    uint32_t Open(const std::filesystem::path& file, OpenedImage& disk) override;

    /// The bytes of an image, also after it was detached; null when there is none.
    std::shared_ptr<TrackedStorage> ImageBytes(const std::filesystem::path& file) const;
    /// What the image was created with; null when there is none.
    const NewImage* ImageShape(const std::filesystem::path& file) const;
    /// Forgets an image, as a file is deleted.
    void Remove(const std::filesystem::path& file) { images_.erase(file); }

private:
    struct Image {
        NewImage shape;
        std::shared_ptr<TrackedStorage> bytes;
    };
    std::map<std::filesystem::path, Image> images_;
};

}  // namespace machine
