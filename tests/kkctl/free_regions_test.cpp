#include "free_regions.h"

#include <gmock/gmock.h>

using testing::ElementsAre;
using testing::IsEmpty;

namespace kkctl {

namespace {

constexpr uint64_t kMiB = 1 << 20;

Disk GptDisk(uint64_t size, uint32_t sectorSize = 512)
{
    return {0, size, sectorSize, KK_PARTITION_STYLE_GPT, 0};
}

Disk MbrDisk(uint64_t size, uint32_t sectorSize = 512)
{
    return {0, size, sectorSize, KK_PARTITION_STYLE_MBR, 0};
}

Partition At(uint64_t start, uint64_t length)
{
    Partition partition;
    partition.startOffset = start;
    partition.length = length;
    return partition;
}

}  // namespace

TEST(FreeRegionsTest, ADiskWithoutPartitionsIsFreeFromTheFirstMebibyteOn)
{
    EXPECT_THAT(FreeRegions(MbrDisk(64 * kMiB), {}), ElementsAre(Region{kMiB, 63 * kMiB}));
}

TEST(FreeRegionsTest, TheLastSectorsOfAGptDiskAreNotFree)
{
    EXPECT_THAT(FreeRegions(GptDisk(64 * kMiB), {}), ElementsAre(Region{kMiB, 63 * kMiB - 34 * 512}));
    EXPECT_THAT(FreeRegions(GptDisk(64 * kMiB, 4096), {}), ElementsAre(Region{kMiB, 63 * kMiB - 34 * 4096}));
}

TEST(FreeRegionsTest, NothingIsFreePastWhatAnMbrCanAddress)
{
    EXPECT_THAT(FreeRegions(MbrDisk(3ull << 40), {}), ElementsAre(Region{kMiB, (2ull << 40) - kMiB}));
    EXPECT_THAT(FreeRegions(MbrDisk(3ull << 40, 4096), {}), ElementsAre(Region{kMiB, (3ull << 40) - kMiB}));
}

TEST(FreeRegionsTest, NothingIsFreeWhereThereIsNoTable)
{
    EXPECT_THAT(FreeRegions({0, 64 * kMiB, 512, KK_PARTITION_STYLE_RAW, 0}, {}), IsEmpty());
}

TEST(FreeRegionsTest, GapsLieBetweenPartitionsInWhateverOrder)
{
    const std::vector<Partition> partitions = {At(40 * kMiB, 8 * kMiB), At(2 * kMiB, 8 * kMiB), At(10 * kMiB, kMiB)};

    EXPECT_THAT(FreeRegions(MbrDisk(64 * kMiB), partitions),
                ElementsAre(Region{kMiB, kMiB}, Region{11 * kMiB, 29 * kMiB}, Region{48 * kMiB, 16 * kMiB}));
}

TEST(FreeRegionsTest, OverlappingPartitionsCountAsOne)
{
    const std::vector<Partition> partitions = {At(2 * kMiB, 20 * kMiB), At(4 * kMiB, kMiB), At(20 * kMiB, 10 * kMiB)};

    EXPECT_THAT(FreeRegions(MbrDisk(64 * kMiB), partitions),
                ElementsAre(Region{kMiB, kMiB}, Region{30 * kMiB, 34 * kMiB}));
}

TEST(FreeRegionsTest, PartitionsMayReachPastTheDiskAndPastAllNumbers)
{
    EXPECT_THAT(FreeRegions(GptDisk(64 * kMiB), {At(8 * kMiB, UINT64_MAX)}), ElementsAre(Region{kMiB, 7 * kMiB}));
    EXPECT_THAT(FreeRegions(MbrDisk(64 * kMiB), {At(80 * kMiB, kMiB)}), ElementsAre(Region{kMiB, 63 * kMiB}));
    EXPECT_THAT(FreeRegions(MbrDisk(64 * kMiB), {At(0, UINT64_MAX), At(UINT64_MAX, UINT64_MAX)}), IsEmpty());
}

TEST(FreeRegionsTest, ARegionHasRoomForASectorFromItsFirstMebibyteOn)
{
    const auto gap = [](uint64_t start, uint64_t end, uint32_t sectorSize = 512) {
        return FreeRegions(MbrDisk(end, sectorSize), {At(0, start)});
    };

    EXPECT_THAT(gap(2 * kMiB, 2 * kMiB + 512), ElementsAre(Region{2 * kMiB, 512}));
    EXPECT_THAT(gap(2 * kMiB, 2 * kMiB + 511), IsEmpty());
    EXPECT_THAT(gap(2 * kMiB, 2 * kMiB + 512, 4096), IsEmpty());
    EXPECT_THAT(gap(2 * kMiB + 512, 3 * kMiB + 512), ElementsAre(Region{2 * kMiB + 512, kMiB}));
    EXPECT_THAT(gap(2 * kMiB + 512, 3 * kMiB), IsEmpty());
    EXPECT_THAT(gap(2 * kMiB, 2 * kMiB), IsEmpty());
}

TEST(FreeRegionsTest, ADiskTooSmallForItsTableHasNoRoom)
{
    EXPECT_THAT(FreeRegions(GptDisk(512), {}), IsEmpty());
    EXPECT_THAT(FreeRegions(MbrDisk(0), {}), IsEmpty());
}

}  // namespace kkctl
