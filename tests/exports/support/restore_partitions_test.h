#pragma once

#include <gmock/gmock.h>

#include <vector>

#include "exports/support/restore_test.h"
#include "exports/support/table_on_disk.h"
#include "machine/layout_parser.h"

/// Restores an image of three partitions onto a disk of the same size.
class RestorePartitionsTest : public RestoreTest {
protected:
    static constexpr uint64_t kSize = 32 * kMiB;
    static constexpr Place kFirst = {kMiB, 2 * kMiB};
    static constexpr Place kSecond = {4 * kMiB, kMiB + 512};
    static constexpr Place kThird = {8 * kMiB, 9 * kMiB};

    RestorePartitionsTest()
    {
        MakeImage(kSmallGpt, {kFirst, kSecond, kThird}, kSize);
        AddTarget(kSize);
    }

    void ExpectRestored(const Place& place) { RestoreTest::ExpectRestored(place.start, place.start, place.length); }
    void ExpectOld(const Place& place) { RestoreTest::ExpectOld(place.start, place.length); }

    /// The table of disk 0 as its bytes tell it in sectors of a size that need not be the disk's.
    std::vector<Place> PlacesOnTarget(uint32_t sectorSize) const
    {
        machine::MemoryStorage copy(Target().Size());
        EXPECT_TRUE(copy.Write(0, Target().ReadBytes(0, Target().Size())));
        machine::Layout layout;
        EXPECT_TRUE(machine::ParseGpt(copy, sectorSize, layout));
        std::vector<Place> places;
        for (const kk::PartitionInformationEx& entry : layout.partitions) {
            places.push_back(
                {static_cast<uint64_t>(entry.startingOffset), static_cast<uint64_t>(entry.partitionLength)});
        }
        return places;
    }
};
