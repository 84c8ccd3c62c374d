#include "backup/image_table_plan.h"

#include "image_table_fixture.h"

namespace {

/// A disk of three partitions, of which the plan holds those that were chosen.
class ImageTablePlanTest : public ImageTableTest {
protected:
    ImageTablePlanTest()
    {
        UseMemory(64 * kMiB);
        layout.diskGuid = {1, 2, 3, {4, 5, 6, 7, 8, 9, 10, 11}};
        for (uint8_t i = 1; i <= 3; ++i) {
            AddPartition(i, (31u - 10u * i) * kMiB, i * kMiB);
        }
    }

    void AddPartition(uint8_t number, uint64_t start, uint64_t length)
    {
        kk::PartitionEntry partition = {};
        partition.number = number;
        partition.start = start;
        partition.length = length;
        partition.typeGuid = {number, 0x10, 0, {}};
        partition.idGuid = {number, 0x20, 0, {}};
        std::fill(std::begin(partition.name), std::end(partition.name), static_cast<char16_t>(u'a' + number));
        partition.mbrType = static_cast<uint8_t>(0x80 + number);
        EXPECT_TRUE(layout.partitions.Append(partition));
    }

    void Plan(size_t index, uint64_t imageOffset)
    {
        kk::BackupPlanEntry entry = {};
        entry.partition = &layout.partitions[index];
        entry.imageOffset = imageOffset;
        EXPECT_TRUE(plan.Append(entry));
    }

    void Choose(std::vector<uint32_t> numbers)
    {
        chosen = std::move(numbers);
        request.partitionNumbers = chosen.data();
        request.partitionCount = static_cast<uint32_t>(chosen.size());
    }

    KK_STATUS Write(kk::PartitionStyle style)
    {
        layout.style = style;
        return kk::WriteImageTable(*target, request, layout, 512, 64 * kMiB / 512, plan);
    }

    /// Type, offset and length of the used records of the MBR.
    std::vector<std::vector<uint64_t>> MbrRecords()
    {
        std::vector<std::vector<uint64_t>> records;
        for (uint64_t at = 446; at < 510; at += 16) {
            if (Number(at + 4, 1) != 0) {
                EXPECT_EQ(Number(at, 1), 0u);  // never active
                records.push_back({Number(at + 4, 1), Number(at + 8, 4) * 512, Number(at + 12, 4) * 512});
            }
        }
        return records;
    }
    /// The same of the GPT's entries, of which the type's first byte tells.
    std::vector<std::vector<uint64_t>> GptEntries()
    {
        std::vector<std::vector<uint64_t>> entries;
        for (uint64_t at = 1024; at < 1024 + 16384; at += 128) {
            const uint64_t number = Number(at, 1);
            if (number != 0) {
                EXPECT_EQ(Number(at + 4, 1), 0x10u);
                EXPECT_EQ(Number(at + 16, 1), number);
                EXPECT_EQ(Number(at + 20, 1), 0x20u);
                EXPECT_EQ(Number(at + 48, 8), 0u);
                EXPECT_EQ(Number(at + 56, 2), u'a' + number);
                EXPECT_EQ(Number(at + 126, 2), u'a' + number);
                const uint64_t first = Number(at + 32, 8);
                entries.push_back({number, first * 512, (Number(at + 40, 8) - first + 1) * 512});
            }
        }
        return entries;
    }

    using Table = std::vector<std::vector<uint64_t>>;

    std::vector<uint32_t> chosen;
    kk::BackupRequest request = {};
    kk::DiskLayout layout;
    kk::BackupPlan plan;
};

TEST_F(ImageTablePlanTest, PartitionsStandInLayoutOrderWhereTheyWere)
{
    Plan(2, 50 * kMiB);

    EXPECT_EQ(Write(kk::PartitionStyle::Mbr), 0);
    EXPECT_EQ(MbrRecords(), (Table{{0x81, 21 * kMiB, kMiB}, {0x82, 11 * kMiB, 2 * kMiB}, {0x83, kMiB, 3 * kMiB}}));

    EXPECT_EQ(Write(kk::PartitionStyle::Gpt), 0);
    EXPECT_EQ(GptEntries(), (Table{{1, 21 * kMiB, kMiB}, {2, 11 * kMiB, 2 * kMiB}, {3, kMiB, 3 * kMiB}}));
}

TEST_F(ImageTablePlanTest, PartitionsThatWereNotChosenMayStayEmpty)
{
    Choose({2});
    Plan(1, 11 * kMiB);

    EXPECT_EQ(Write(kk::PartitionStyle::Mbr), 0);
    EXPECT_EQ(MbrRecords().size(), 3u);
    EXPECT_EQ(Write(kk::PartitionStyle::Gpt), 0);
    EXPECT_EQ(GptEntries().size(), 3u);
}

TEST_F(ImageTablePlanTest, PartitionsThatWereNotChosenMayBeRemoved)
{
    Choose({3, 1});
    request.removeOmitted = true;

    EXPECT_EQ(Write(kk::PartitionStyle::Mbr), 0);
    EXPECT_EQ(MbrRecords(), (Table{{0x81, 21 * kMiB, kMiB}, {0x83, kMiB, 3 * kMiB}}));

    EXPECT_EQ(Write(kk::PartitionStyle::Gpt), 0);
    EXPECT_EQ(GptEntries(), (Table{{1, 21 * kMiB, kMiB}, {3, kMiB, 3 * kMiB}}));
}

TEST_F(ImageTablePlanTest, PackedPartitionsStandInPlanOrderWhereTheyWerePut)
{
    request.compact = 0x80000000;
    request.removeOmitted = true;
    Plan(2, kMiB);
    Plan(0, 4 * kMiB);

    EXPECT_EQ(Write(kk::PartitionStyle::Mbr), 0);
    EXPECT_EQ(MbrRecords(), (Table{{0x83, kMiB, 3 * kMiB}, {0x81, 4 * kMiB, kMiB}}));

    EXPECT_EQ(Write(kk::PartitionStyle::Gpt), 0);
    EXPECT_EQ(GptEntries(), (Table{{3, kMiB, 3 * kMiB}, {1, 4 * kMiB, kMiB}}));
}

TEST_F(ImageTablePlanTest, NothingChosenLeavesAnEmptyTable)
{
    Choose({9});
    request.removeOmitted = true;

    EXPECT_EQ(Write(kk::PartitionStyle::Mbr), 0);
    EXPECT_TRUE(MbrRecords().empty());
    EXPECT_EQ(Number(510, 2), 0xAA55u);

    EXPECT_EQ(Write(kk::PartitionStyle::Gpt), 0);
    EXPECT_TRUE(GptEntries().empty());
}

TEST_F(ImageTablePlanTest, TheDiskKeepsItsGuidAndItsSize)
{
    EXPECT_EQ(Write(kk::PartitionStyle::Gpt), 0);
    EXPECT_EQ(Bytes(512 + 56, 16), (std::vector<uint8_t>{1, 0, 0, 0, 2, 0, 3, 0, 4, 5, 6, 7, 8, 9, 10, 11}));
    EXPECT_EQ(Number(512 + 32, 8), 64 * kMiB / 512 - 1);
}

TEST_F(ImageTablePlanTest, AnEntryWithoutRoomIsLeftOut)
{
    for (uint8_t i = 4; i <= 10; ++i) {
        AddPartition(i, (30u + i) * kMiB, kMiB);
    }
    // The list of entries takes room for eight, then for sixteen.
    for (const auto& [nth, lost] : std::vector<std::pair<uint64_t, uint64_t>>{{1, 1}, {2, 9}}) {
        machine.faults.Clear();
        machine.faults.Fail({.kind = machine::CallKind::Allocate}, nth, 0);

        EXPECT_EQ(Write(kk::PartitionStyle::Gpt), 0);
        const Table entries = GptEntries();
        EXPECT_EQ(entries.size(), 9u);
        EXPECT_TRUE(std::none_of(entries.begin(), entries.end(),
                                 [number = lost](const auto& entry) { return entry[0] == number; }));
    }
}

TEST_F(ImageTablePlanTest, AFailingWriteIsReported)
{
    FailWrite(1, 0xC0000185);
    EXPECT_EQ(Write(kk::PartitionStyle::Mbr), Status(0xC0000185));

    machine.faults.Clear();
    FailWrite(4, 0xC00000A2);
    EXPECT_EQ(Write(kk::PartitionStyle::Gpt), Status(0xC00000A2));
}

}  // namespace
