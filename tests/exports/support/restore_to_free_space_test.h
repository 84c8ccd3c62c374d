#pragma once

#include <gmock/gmock.h>

#include <optional>
#include <vector>

#include "exports/support/restore_test.h"
#include "exports/support/table_on_disk.h"

/// Restores into the free space of disk 0, which has one partition, kTaken.
class RestoreToFreeSpaceTest : public RestoreTest {
protected:
    static constexpr uint64_t kSize = 64 * kMiB;
    static constexpr uint64_t kSource = 2 * kMiB;
    static constexpr uint64_t kLength = 3 * kMiB + 512;
    /// A partition of one sector.
    static constexpr uint64_t kTinySource = 6 * kMiB;
    static constexpr Place kTaken = {32 * kMiB, 8 * kMiB};
    static constexpr uint64_t kAll = UINT64_MAX;
    static constexpr uint64_t kUsableEnd = kSize - 33 * 512;

    RestoreToFreeSpaceTest()
    {
        MakeImage(kSmallGpt, {{kTinySource, 512}, {kSource, kLength}}, 8 * kMiB);
        AddTarget(kSmallGpt, {kTaken}, kSize);
    }

    int32_t Restore(uint64_t regionStart, uint64_t regionLength, int32_t keepSize = 0)
    {
        return RestoreToFreeSpace(2, regionStart, regionLength, keepSize);
    }

    /// The partition that was added; the disk's own is still the first.
    Place Added(const DiskKind& kind = kSmallGpt) const
    {
        const std::vector<std::optional<Place>> slots = ReadSlots(Target(), kind);
        EXPECT_EQ(slots.at(0), kTaken);
        return slots.size() == 2 && slots[1] ? *slots[1] : Place{};
    }

    void ExpectRefused(int32_t expected, uint64_t regionStart, uint64_t regionLength, int32_t keepSize = 0)
    {
        EXPECT_EQ(Restore(regionStart, regionLength, keepSize), expected) << regionStart << ", " << regionLength;
        EXPECT_THAT(written, testing::IsEmpty());
        EXPECT_EQ(machine.journal.Count({.code = 0x70140}), 0u);
    }

    void PutOnTarget(uint64_t offset, uint64_t number) { Target().WriteBytes(offset, machine::BytesOf(number)); }
    static constexpr uint64_t kFirstUsableField = 512 + 40;
    static constexpr uint64_t kLastUsableField = 512 + 48;
};
