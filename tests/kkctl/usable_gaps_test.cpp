#include "usable_gaps.h"

#include <gmock/gmock.h>

using testing::ElementsAre;
using testing::IsEmpty;

namespace kkctl {

namespace {

constexpr uint64_t kMiB = 1 << 20;

Disk MbrDisk(uint64_t size, uint32_t sectorSize = 512)
{
    return {0, size, sectorSize, PartitionStyle::Mbr, 0};
}

Partition At(uint64_t start, uint64_t length)
{
    Partition partition;
    partition.startOffset = start;
    partition.length = length;
    return partition;
}

}  // namespace

TEST(UsableGapsTest, LieBetweenThePartitions)
{
    EXPECT_THAT(UsableGaps(MbrDisk(64 * kMiB), {At(40 * kMiB, 8 * kMiB), At(2 * kMiB, 8 * kMiB)}),
                ElementsAre(Region{kMiB, kMiB}, Region{10 * kMiB, 30 * kMiB}, Region{48 * kMiB, 16 * kMiB}));
}

TEST(UsableGapsTest, HaveRoomForASectorFromTheirFirstMebibyteOn)
{
    const auto gap = [](uint64_t start, uint64_t end, uint32_t sectorSize = 512) {
        return UsableGaps(MbrDisk(end, sectorSize), {At(0, start)});
    };

    EXPECT_THAT(gap(2 * kMiB, 2 * kMiB + 512), ElementsAre(Region{2 * kMiB, 512}));
    EXPECT_THAT(gap(2 * kMiB, 2 * kMiB + 511), IsEmpty());
    EXPECT_THAT(gap(2 * kMiB, 2 * kMiB + 512, 4096), IsEmpty());
    EXPECT_THAT(gap(2 * kMiB + 512, 3 * kMiB + 512), ElementsAre(Region{2 * kMiB + 512, kMiB}));
    EXPECT_THAT(gap(2 * kMiB + 512, 3 * kMiB), IsEmpty());
}

}  // namespace kkctl
