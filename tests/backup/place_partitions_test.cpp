#include <vector>

#include "backup/backup_plan.h"
#include "support/machine_test.h"

namespace {

class PlacePartitionsTest : public MachineTest {
protected:
    struct Partition {
        uint64_t start;
        uint64_t length;
    };

    /// Plans the partitions in this order and numbers them from 1.
    void Plan(const std::vector<Partition>& partitions)
    {
        entries.clear();
        entries.reserve(partitions.size());
        for (const Partition& partition : partitions) {
            kk::PartitionEntry entry = {};
            entry.number = static_cast<uint32_t>(entries.size() + 1);
            entry.start = partition.start;
            entry.length = partition.length;
            entries.push_back(entry);
            kk::BackupPlanEntry planned = {};
            planned.partition = &entries.back();
            planned.clusterSize = entry.number;
            ASSERT_TRUE(plan.Append(planned));
        }
    }

    uint64_t Place(uint64_t diskSize, uint32_t sectorSize = 512)
    {
        return kk::PlacePartitions(request, diskSize, sectorSize, plan);
    }

    std::vector<uint64_t> Offsets() const
    {
        std::vector<uint64_t> offsets;
        for (const kk::BackupPlanEntry& entry : plan) {
            offsets.push_back(entry.imageOffset);
        }
        return offsets;
    }
    std::vector<uint32_t> Order() const
    {
        std::vector<uint32_t> numbers;
        for (const kk::BackupPlanEntry& entry : plan) {
            EXPECT_EQ(entry.clusterSize, entry.partition->number);  // the rest of an entry moves with it
            numbers.push_back(entry.partition->number);
        }
        return numbers;
    }

    kk::BackupRequest request = {};
    std::vector<kk::PartitionEntry> entries;
    kk::BackupPlan plan;
};

TEST_F(PlacePartitionsTest, PartitionsStayWhereTheyAre)
{
    Plan({{900 * kMiB + 512, kMiB}, {63 * 512, 5}, {0, UINT64_MAX}});

    EXPECT_EQ(Place(kGiB), kGiB);
    EXPECT_EQ(Offsets(), (std::vector<uint64_t>{900 * kMiB + 512, 63 * 512, 0}));
    EXPECT_EQ(Order(), (std::vector<uint32_t>{1, 2, 3}));
}

TEST_F(PlacePartitionsTest, TheDiskIsRoundedUpToWholeSectors)
{
    EXPECT_EQ(Place(0), 0u);
    EXPECT_EQ(Place(1), 512u);
    EXPECT_EQ(Place(512), 512u);
    EXPECT_EQ(Place(513), 1024u);
    EXPECT_EQ(Place(kGiB + 512, 4096), kGiB + 4096);
    EXPECT_EQ(Place(1041, 520), 1560u);
    EXPECT_EQ(Place(0xFFFF'FFFF'FFFF'FE00), 0xFFFF'FFFF'FFFF'FE00u);
    EXPECT_EQ(Place(0xFFFF'FFFF'FFFF'FE01), UINT64_MAX);
}

TEST_F(PlacePartitionsTest, PackedPartitionsFollowOnEachOtherOnWholeMebibytes)
{
    request.compact = 1;
    Plan({{7 * kMiB, 100 * kMiB + 1}, {500 * kMiB, 3 * kMiB}, {900 * kMiB, 1}});

    EXPECT_EQ(Place(kGiB), 106 * kMiB + 33 * 512);
    EXPECT_EQ(Offsets(), (std::vector<uint64_t>{kMiB, 102 * kMiB, 105 * kMiB}));
}

TEST_F(PlacePartitionsTest, AWholeMebibyteNeedsNoRounding)
{
    request.compact = 1;
    Plan({{10 * kMiB, 4 * kMiB}, {20 * kMiB, 4 * kMiB - 1}, {30 * kMiB, 0}, {40 * kMiB, kMiB}});

    EXPECT_EQ(Place(kGiB), 10 * kMiB + 33 * 512);
    EXPECT_EQ(Offsets(), (std::vector<uint64_t>{kMiB, 5 * kMiB, 9 * kMiB, 9 * kMiB}));
}

TEST_F(PlacePartitionsTest, PackedPartitionsAreInTheOrderOfTheirStarts)
{
    request.compact = 1;
    Plan({{9 * kMiB, kMiB}, {2 * kMiB, 2 * kMiB}, {5 * kMiB, kMiB}, {1 * kMiB, kMiB}});

    EXPECT_EQ(Place(kGiB), 6 * kMiB + 33 * 512);
    EXPECT_EQ(Order(), (std::vector<uint32_t>{4, 2, 3, 1}));
    EXPECT_EQ(Offsets(), (std::vector<uint64_t>{kMiB, 2 * kMiB, 4 * kMiB, 5 * kMiB}));
}

TEST_F(PlacePartitionsTest, PartitionsThatStartTogetherKeepTheirOrder)
{
    request.compact = 1;
    Plan({{8 * kMiB, kMiB}, {8 * kMiB, kMiB}, {4 * kMiB, kMiB}, {8 * kMiB, kMiB}, {4 * kMiB, kMiB}});

    (void)Place(kGiB);
    EXPECT_EQ(Order(), (std::vector<uint32_t>{3, 5, 1, 2, 4}));
}

TEST_F(PlacePartitionsTest, StartsAreComparedIn64Bits)
{
    request.compact = 1;
    Plan({{0x1'0000'0000, kMiB}, {0xFFFF'FFFF'0000'0000, kMiB}, {0x8000'0000, kMiB}, {0x7FFF'FFFF'0000'0000, kMiB}});

    (void)Place(kGiB);
    EXPECT_EQ(Order(), (std::vector<uint32_t>{3, 1, 4, 2}));
}

TEST_F(PlacePartitionsTest, AnyNonZeroFlagPacks)
{
    for (const uint32_t flag : {2u, 0x100u, 0x80000000u}) {
        request.compact = flag;
        EXPECT_EQ(Place(kGiB), kMiB + 33 * 512);
    }
}

TEST_F(PlacePartitionsTest, TheRoomForTheSecondArrayIsInWholeSectors)
{
    request.compact = 1;
    Plan({{7 * kMiB, 3 * kMiB}});

    EXPECT_EQ(Place(kGiB, 512), 4 * kMiB + 33 * 512);
    EXPECT_EQ(Place(kGiB, 4096), 4 * kMiB + 5 * 4096);
    EXPECT_EQ(Place(kGiB, 520), (4 * kMiB / 520 + 1 + 32) * 520);
    EXPECT_EQ(Place(kGiB, 16384), 4 * kMiB + 2 * 16384);
    EXPECT_EQ(Place(kGiB, 32768), 4 * kMiB + 2 * 32768);
}

TEST_F(PlacePartitionsTest, AnEmptyPlanLeavesTheRoomForItsTables)
{
    request.compact = 1;

    EXPECT_EQ(Place(kGiB), kMiB + 33 * 512);
}

TEST_F(PlacePartitionsTest, TheSizeOfThePackedDiskDoesNotMatter)
{
    request.compact = 1;
    Plan({{7 * kMiB, kMiB}});

    EXPECT_EQ(Place(0), 2 * kMiB + 33 * 512);
    EXPECT_EQ(Place(UINT64_MAX), 2 * kMiB + 33 * 512);
}

TEST_F(PlacePartitionsTest, APackedDiskBeyond64BitsIsTheLargestNumber)
{
    request.compact = 1;
    Plan({{kMiB, 0}, {2 * kMiB, kMiB}});
    for (const uint64_t length : {UINT64_MAX, UINT64_MAX - kMiB, UINT64_MAX - kMiB + 1, UINT64_MAX - 2 * kMiB + 2}) {
        entries[0].length = length;

        EXPECT_EQ(Place(kGiB), UINT64_MAX) << length;
        EXPECT_EQ(plan[0].imageOffset, kMiB);
        EXPECT_GT(plan[1].imageOffset, UINT64_MAX - 2 * kMiB);
    }
}

TEST_F(PlacePartitionsTest, TheTablesMayBeWhatIsTooMuch)
{
    request.compact = 1;
    Plan({{kMiB, UINT64_MAX - 3 * kMiB}});

    // The end lies 2 MiB below 2^64: room for small sectors, but not for large ones.
    EXPECT_EQ(Place(kGiB, 512), UINT64_MAX - 2 * kMiB + 1 + 33 * 512);
    EXPECT_EQ(Place(kGiB, 0x80000000), UINT64_MAX);
}

}  // namespace
