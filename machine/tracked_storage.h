#pragma once

#include <cstdint>
#include <map>
#include <vector>

#include "machine/storage.h"

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
    /// What of these bytes is in the list.
    std::vector<Range> Within(uint64_t start, uint64_t length) const;
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
    std::vector<Stretch> DataIn(uint64_t offset, uint64_t length) const override
    {
        return bytes_.DataIn(offset, length);
    }

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

}  // namespace machine
