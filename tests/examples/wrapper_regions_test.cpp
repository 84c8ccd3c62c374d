#include <gmock/gmock.h>

#include "kestrelkit/kestrelkit.hpp"

using kestrelkit::Disk;
using kestrelkit::FreeRegions;
using kestrelkit::Gaps;
using kestrelkit::Partition;
using kestrelkit::PartitionStyle;
using kestrelkit::Region;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr uint64_t kMiB = 1 << 20;

Disk GptDisk(uint64_t size, uint32_t sectorSize = 512)
{
    return {.number = 0, .size = size, .sectorSize = sectorSize, .style = PartitionStyle::Gpt, .partitionCount = 0};
}

Disk MbrDisk(uint64_t size, uint32_t sectorSize = 512)
{
    return {.number = 0, .size = size, .sectorSize = sectorSize, .style = PartitionStyle::Mbr, .partitionCount = 0};
}

Partition At(uint64_t start, uint64_t length)
{
    Partition partition;
    partition.startOffset = start;
    partition.length = length;
    return partition;
}

}  // namespace

TEST(WrapperGapsTest, LieBetweenThePartitionsInWhateverOrder)
{
    EXPECT_THAT(Gaps(MbrDisk(64 * kMiB), {At(40 * kMiB, 8 * kMiB), At(2 * kMiB, 8 * kMiB), At(10 * kMiB, kMiB)}),
                ElementsAre(Region{kMiB, kMiB}, Region{11 * kMiB, 29 * kMiB}, Region{48 * kMiB, 16 * kMiB}));
    EXPECT_THAT(Gaps(MbrDisk(64 * kMiB), {}), ElementsAre(Region{kMiB, 63 * kMiB}));
}

TEST(WrapperGapsTest, AreToldDownToAByte)
{
    EXPECT_THAT(Gaps(MbrDisk(64 * kMiB), {At(kMiB, 1000), At(kMiB + 1001, 63 * kMiB - 1001 - 1)}),
                ElementsAre(Region{kMiB + 1000, 1}, Region{64 * kMiB - 1, 1}));
    EXPECT_THAT(Gaps(MbrDisk(64 * kMiB), {At(kMiB, 1000), At(kMiB + 1000, 63 * kMiB - 1000)}), IsEmpty());
}

TEST(WrapperGapsTest, OverlappingPartitionsCountAsOne)
{
    EXPECT_THAT(Gaps(MbrDisk(64 * kMiB), {At(2 * kMiB, 20 * kMiB), At(4 * kMiB, kMiB), At(20 * kMiB, 10 * kMiB)}),
                ElementsAre(Region{kMiB, kMiB}, Region{30 * kMiB, 34 * kMiB}));
}

TEST(WrapperGapsTest, EndBeforeTheSecondTableAndBeforeWhatAnMbrCannotName)
{
    EXPECT_THAT(Gaps(GptDisk(64 * kMiB), {}), ElementsAre(Region{kMiB, 63 * kMiB - 34 * 512}));
    EXPECT_THAT(Gaps(GptDisk(64 * kMiB, 4096), {}), ElementsAre(Region{kMiB, 63 * kMiB - 34 * 4096}));
    EXPECT_THAT(Gaps(MbrDisk(3ull << 40), {}), ElementsAre(Region{kMiB, (2ull << 40) - kMiB}));
    EXPECT_THAT(Gaps(MbrDisk(3ull << 40, 4096), {}), ElementsAre(Region{kMiB, (3ull << 40) - kMiB}));
}

TEST(WrapperGapsTest, AreNoneWhereThereIsNoTableOrNoRoomForIt)
{
    Disk blank = MbrDisk(64 * kMiB);
    blank.style = PartitionStyle::Raw;

    EXPECT_THAT(Gaps(blank, {}), IsEmpty());
    EXPECT_THAT(Gaps(GptDisk(512), {}), IsEmpty());
    EXPECT_THAT(Gaps(MbrDisk(0), {}), IsEmpty());
}

TEST(WrapperGapsTest, AreNotConfusedByTablesThatSayNonsense)
{
    EXPECT_THAT(Gaps(GptDisk(64 * kMiB), {At(8 * kMiB, UINT64_MAX)}), ElementsAre(Region{kMiB, 7 * kMiB}));
    EXPECT_THAT(Gaps(MbrDisk(64 * kMiB), {At(80 * kMiB, kMiB)}), ElementsAre(Region{kMiB, 63 * kMiB}));
    EXPECT_THAT(Gaps(MbrDisk(64 * kMiB), {At(0, UINT64_MAX), At(UINT64_MAX, UINT64_MAX)}), IsEmpty());
    EXPECT_THAT(Gaps(MbrDisk(64 * kMiB), {At(kMiB, 60 * kMiB), At(2 * kMiB, kMiB), At(UINT64_MAX, 1)}),
                ElementsAre(Region{61 * kMiB, 3 * kMiB}));
}

TEST(WrapperFreeRegionsTest, BeginOnAMiB)
{
    EXPECT_THAT(FreeRegions(MbrDisk(64 * kMiB), {At(kMiB, 1000)}), ElementsAre(Region{2 * kMiB, 62 * kMiB}));
    EXPECT_THAT(FreeRegions(MbrDisk(64 * kMiB), {At(kMiB, kMiB)}), ElementsAre(Region{2 * kMiB, 62 * kMiB}));
}

TEST(WrapperFreeRegionsTest, AreAMiBLargeOrLarger)
{
    const auto between = [](uint64_t start, uint64_t end) {
        return FreeRegions(MbrDisk(64 * kMiB), {At(0, start), At(end, UINT64_MAX)});
    };

    EXPECT_THAT(between(2 * kMiB, 3 * kMiB), ElementsAre(Region{2 * kMiB, kMiB}));
    EXPECT_THAT(between(2 * kMiB, 3 * kMiB - 1), IsEmpty());
    EXPECT_THAT(between(2 * kMiB + 1, 4 * kMiB), ElementsAre(Region{3 * kMiB, kMiB}));
    EXPECT_THAT(between(2 * kMiB + 1, 4 * kMiB - 1), IsEmpty());
}
