// Partitions in bytes become entries of a GPT in sectors.

#include "partition/gpt_edit_fixture.h"
#include "partition/identifiers.h"
#include "partition/table_edit.h"

namespace kk {
namespace {

class GptTableEditTest : public GptEditTest {
protected:
    KK_STATUS AddPartition(uint64_t offset, uint64_t length)
    {
        number = kUntouched;
        machine.journal.Clear();
        return AddPartitionEntry(*target, sectorSize, PartitionStyle::Gpt, offset, length, kType, 0x83, &number);
    }

    KK_STATUS RemovePartition(uint64_t offset)
    {
        machine.journal.Clear();
        return RemovePartitionEntry(*target, sectorSize, PartitionStyle::Gpt, offset);
    }

    KK_STATUS ResizePartition(uint64_t offset, uint64_t newLength)
    {
        machine.journal.Clear();
        return ResizePartitionEntry(*target, sectorSize, PartitionStyle::Gpt, offset, newLength);
    }

    /// First and last LBA of the entry in the first slot, which both copies have.
    std::pair<uint64_t, uint64_t> Range()
    {
        const machine::GptEntryRecord entry = Entry(kPrimary, 0);
        EXPECT_EQ(machine::BytesOf(entry), machine::BytesOf(Entry(kBackup, 0)));
        return {entry.firstLba, entry.lastLba};
    }

    static std::pair<uint64_t, uint64_t> Sectors(uint64_t first, uint64_t last) { return {first, last}; }
};

TEST_F(GptTableEditTest, ANewPartitionIsOfTheGivenTypeUnderTheUsualNameWithoutAttributes)
{
    UseGpt({});

    EXPECT_EQ(AddPartition(1048576, 104857600), KK_STATUS_SUCCESS);
    EXPECT_EQ(number, 1u);
    EXPECT_EQ(Range(), Sectors(2048, 206847));
    const machine::GptEntryRecord entry = Entry(kPrimary, 0);
    EXPECT_EQ(entry.type, kType);
    EXPECT_EQ(entry.attributes, 0u);
    EXPECT_EQ(std::u16string(entry.name, 36), u"Basic data partition" + std::u16string(16, u'\0'));
}

TEST_F(GptTableEditTest, ANewPartitionHasTheIdentifierThatTheTimeGives)
{
    UseGpt({});
    Guid expected;
    GenerateRandomGuid(expected);

    EXPECT_EQ(AddPartition(1048576, 4096), KK_STATUS_SUCCESS);
    EXPECT_EQ(Entry(kPrimary, 0).id, expected);
    EXPECT_EQ(Entry(kBackup, 0).id, expected);
    EXPECT_EQ(expected.data3 >> 12, 4);
    EXPECT_EQ(expected.data4[0] >> 6, 2);
    EXPECT_EQ(machine.journal.Count({.kind = machine::CallKind::Time}), 1u);
    EXPECT_EQ(machine.journal.Count({.kind = machine::CallKind::Random}), 16u);
}

TEST_F(GptTableEditTest, IdentifiersDifferAsTheTimesOfTheirMakingDo)
{
    UseGpt({});
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(AddPartition(1048576, 4096), KK_STATUS_SUCCESS);
    }
    EXPECT_EQ(Entry(kPrimary, 1).id, Entry(kPrimary, 0).id);

    machine.clock.Advance(1);
    EXPECT_EQ(AddPartition(1048576, 4096), KK_STATUS_SUCCESS);
    EXPECT_NE(Entry(kPrimary, 2).id, Entry(kPrimary, 0).id);
}

TEST_F(GptTableEditTest, TheNumberIsTheSlotAndOptional)
{
    UseGpt({100, 200, 300});

    EXPECT_EQ(AddPartition(1048576, 4096), KK_STATUS_SUCCESS);
    EXPECT_EQ(number, 4u);
    EXPECT_EQ(AddPartitionEntry(*target, 512, PartitionStyle::Gpt, 1048576, 4096, kType, 0, nullptr),
              KK_STATUS_SUCCESS);
    EXPECT_EQ(Entry(kPrimary, 4).type, kType);
}

TEST_F(GptTableEditTest, BoundsAreRoundedDownToSectorsEachByItself)
{
    UseGpt({});

    // The sum of offset and length is what is divided, so both remainders count.
    EXPECT_EQ(AddPartition(10 * 512 + 300, 512 + 300), KK_STATUS_SUCCESS);
    EXPECT_EQ(Range(), Sectors(10, 11));
    EXPECT_EQ(ResizePartition(10 * 512 + 300, 2 * 512 + 300), KK_STATUS_SUCCESS);
    EXPECT_EQ(Range(), Sectors(10, 12));
    EXPECT_EQ(ResizePartition(10 * 512, 2 * 512 + 511), KK_STATUS_SUCCESS);
    EXPECT_EQ(Range(), Sectors(10, 11));
    EXPECT_EQ(ResizePartition(10 * 512, 3 * 512), KK_STATUS_SUCCESS);
    EXPECT_EQ(Range(), Sectors(10, 12));
}

TEST_F(GptTableEditTest, APartitionOfNoLengthEndsBeforeItsStart)
{
    UseGpt({});

    EXPECT_EQ(AddPartition(1048576, 0), KK_STATUS_SUCCESS);
    EXPECT_EQ(Range(), Sectors(2048, 2047));
}

TEST_F(GptTableEditTest, AnEndBeyondAllAddressesIsTheLargestThereIs)
{
    UseGpt({});

    EXPECT_EQ(AddPartition(1048576, UINT64_MAX), KK_STATUS_SUCCESS);
    EXPECT_EQ(Range(), Sectors(2048, UINT64_MAX / 512 - 1));
    EXPECT_EQ(ResizePartition(1048576, 512), KK_STATUS_SUCCESS);
    EXPECT_EQ(Range(), Sectors(2048, 2048));
    EXPECT_EQ(ResizePartition(1048576, UINT64_MAX - 1048575), KK_STATUS_SUCCESS);
    EXPECT_EQ(Range(), Sectors(2048, UINT64_MAX / 512 - 1));
}

TEST_F(GptTableEditTest, SectorsAreCountedInTheirOwnSize)
{
    for (const uint32_t bytes : {512u, 520u, 4096u}) {
        UseGpt({}, bytes);

        EXPECT_EQ(AddPartition(uint64_t{bytes} * 1000, uint64_t{bytes} * 77), KK_STATUS_SUCCESS);
        EXPECT_EQ(Range(), Sectors(1000, 1076));
        EXPECT_EQ(ResizePartition(uint64_t{bytes} * 1000, uint64_t{bytes} * 99), KK_STATUS_SUCCESS);
        EXPECT_EQ(Range(), Sectors(1000, 1098));
        EXPECT_EQ(RemovePartition(uint64_t{bytes} * 1000), KK_STATUS_SUCCESS);
        EXPECT_EQ(Entry(kPrimary, 0).type, Guid{});
    }
}

TEST_F(GptTableEditTest, ASectorSizeOfZeroMeans512)
{
    UseGpt({});
    const auto with = [this](uint32_t bytes) {
        sectorSize = bytes;
        return this;
    };

    EXPECT_EQ(with(0)->AddPartition(1048576, 104857600), KK_STATUS_SUCCESS);
    EXPECT_EQ(with(512)->Range(), Sectors(2048, 206847));
    EXPECT_EQ(with(0)->ResizePartition(1048576, 512), KK_STATUS_SUCCESS);
    EXPECT_EQ(with(512)->Range(), Sectors(2048, 2048));
    EXPECT_EQ(with(0)->RemovePartition(1048576), KK_STATUS_SUCCESS);
    EXPECT_EQ(with(512)->Range(), Sectors(0, 0));
}

TEST_F(GptTableEditTest, SectorsThatNoTableFitsAreRefused)
{
    UseGpt({});
    for (const auto& [bytes, status] :
         {std::pair{1u, 0xC000014Cu}, std::pair{64u, 0xC000014Cu}, std::pair{0xFFFFFFFFu, 0xC0000017u}}) {
        sectorSize = bytes;

        EXPECT_EQ(AddPartition(1048576, 4096), Status(status));
        EXPECT_EQ(number, kUntouched);
        EXPECT_EQ(RemovePartition(1048576), Status(status));
        EXPECT_EQ(ResizePartition(1048576, 4096), Status(status));
        EXPECT_TRUE(Steps().empty());
    }
}

TEST_F(GptTableEditTest, APartitionIsMeantByTheSectorOfItsStart)
{
    UseGpt({100, 101});

    EXPECT_EQ(RemovePartition(100 * 512 - 1), Status(0xC000000D));
    EXPECT_EQ(RemovePartition(102 * 512), Status(0xC000000D));
    EXPECT_EQ(RemovePartition(100 * 512 + 511), KK_STATUS_SUCCESS);
    EXPECT_EQ(Entry(kPrimary, 0).type, Guid{});
    EXPECT_EQ(ResizePartition(101 * 512 + 1, 1024), KK_STATUS_SUCCESS);
    EXPECT_EQ(Entry(kPrimary, 1).lastLba, 102u);
}

TEST_F(GptTableEditTest, ResizingKeepsStartTypeIdentifierAndName)
{
    UseGpt({100});
    machine::GptEntryRecord expected = Entry(kPrimary, 0);
    expected.lastLba = 149;

    EXPECT_EQ(ResizePartition(51200, 25600), KK_STATUS_SUCCESS);
    EXPECT_EQ(machine::BytesOf(Entry(kPrimary, 0)), machine::BytesOf(expected));
    EXPECT_EQ(machine.journal.Count({.kind = machine::CallKind::Random}), 0u);
}

TEST_F(GptTableEditTest, FailuresArePassedOn)
{
    UseGpt(std::vector<uint64_t>(128, 100));
    EXPECT_EQ(AddPartition(1048576, 4096), Status(0xC000007F));

    FailWrite(2, 0xC0000185);
    EXPECT_EQ(ResizePartition(51200, 1024), Status(0xC0000185));
    ChangeHeader(kPrimary, [](auto& header) { header.signature[0] = 0; });
    EXPECT_EQ(RemovePartition(51200), Status(0xC000014C));
}

}  // namespace
}  // namespace kk
