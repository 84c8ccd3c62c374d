// Partitions in bytes become records of an MBR in sectors.

#include "partition/mbr_edit_fixture.h"
#include "partition/table_edit.h"

namespace kk {
namespace {

using Record16 = std::vector<uint8_t>;
constexpr uint64_t kTwoTiB = uint64_t{2} << 40;

class MbrTableEditTest : public MbrEditTest {
protected:
    static constexpr Guid kGptType = {1, 2, 3, {4, 5, 6, 7, 8, 9, 10, 11}};

    KK_STATUS AddPartition(uint64_t offset, uint64_t length, uint8_t type = 0x07,
                           PartitionStyle style = PartitionStyle::Mbr)
    {
        number = kUntouched;
        machine.journal.Clear();
        return AddPartitionEntry(*target, sectorSize, style, offset, length, kGptType, type, &number);
    }

    KK_STATUS RemovePartition(uint64_t offset, PartitionStyle style = PartitionStyle::Mbr)
    {
        machine.journal.Clear();
        return RemovePartitionEntry(*target, sectorSize, style, offset);
    }

    KK_STATUS ResizePartition(uint64_t offset, uint64_t newLength, PartitionStyle style = PartitionStyle::Mbr)
    {
        machine.journal.Clear();
        return ResizePartitionEntry(*target, sectorSize, style, offset, newLength);
    }

    /// The sector numbers of a record.
    std::pair<uint64_t, uint64_t> Sectors(uint64_t slot)
    {
        const uint64_t record = kRecordsOffset + slot * kRecordBytes;
        return {Number(record + 8, 4), Number(record + 12, 4)};
    }
};

TEST_F(MbrTableEditTest, ANewPartitionIsOfTheGivenType)
{
    UseMbr({0x0B});

    EXPECT_EQ(AddPartition(1048576, 104857600, 0x27), KK_STATUS_SUCCESS);
    EXPECT_EQ(number, 2u);
    EXPECT_EQ(Record(1), (Record16{0, 0xFE, 0xFF, 0xFF, 0x27, 0xFE, 0xFF, 0xFF, 0, 8, 0, 0, 0, 0x20, 3, 0}));
}

TEST_F(MbrTableEditTest, NothingIsMadeUp)
{
    UseMbr({});

    EXPECT_EQ(AddPartition(1048576, 104857600), KK_STATUS_SUCCESS);
    EXPECT_EQ(machine.journal.Count({.kind = machine::CallKind::Random}), 0u);
    EXPECT_EQ(machine.journal.Count({.kind = machine::CallKind::Time}), 0u);
}

TEST_F(MbrTableEditTest, EveryStyleButGptIsTakenForMbr)
{
    for (const uint32_t style : {0u, 1u, 3u, 0xFFFFFFFFu}) {
        UseMbr({7});

        EXPECT_EQ(AddPartition(51200, 5120, 7, PartitionStyle(style)), KK_STATUS_SUCCESS) << style;
        EXPECT_EQ(Sectors(1), std::pair(uint64_t{100}, uint64_t{10}));
        EXPECT_EQ(ResizePartition(51200, 512, PartitionStyle(style)), KK_STATUS_SUCCESS);
        EXPECT_EQ(Sectors(0), std::pair(uint64_t{100}, uint64_t{1}));
        EXPECT_EQ(RemovePartition(51200, PartitionStyle(style)), KK_STATUS_SUCCESS);
        EXPECT_EQ(Record(0), Record16(16));
        EXPECT_EQ(Steps(), (std::vector<std::string>{"read 0+512", "write 0+512", "flush"}));
    }
}

TEST_F(MbrTableEditTest, OffsetAndLengthAreRoundedDownEachByItself)
{
    UseMbr({});

    EXPECT_EQ(AddPartition(10 * 512 + 300, 512 + 300), KK_STATUS_SUCCESS);
    EXPECT_EQ(Sectors(0), std::pair(uint64_t{10}, uint64_t{1}));
    EXPECT_EQ(ResizePartition(10 * 512 + 511, 3 * 512 - 1), KK_STATUS_SUCCESS);
    EXPECT_EQ(Sectors(0), std::pair(uint64_t{10}, uint64_t{2}));
}

TEST_F(MbrTableEditTest, APartitionFrom2TiBOnIsStoredCutTo32Bits)
{
    UseMbr({});

    EXPECT_EQ(AddPartition(kTwoTiB + 1048576, kTwoTiB + 512), KK_STATUS_SUCCESS);
    EXPECT_EQ(Sectors(0), std::pair(uint64_t{2048}, uint64_t{1}));
    EXPECT_EQ(ResizePartition(1048576, 3 * kTwoTiB + 1024), KK_STATUS_SUCCESS);
    EXPECT_EQ(Sectors(0), std::pair(uint64_t{2048}, uint64_t{2}));
}

TEST_F(MbrTableEditTest, APartitionFrom2TiBOnIsNotFoundAgain)
{
    UseMbr({});
    EXPECT_EQ(AddPartition(kTwoTiB + 1048576, 512), KK_STATUS_SUCCESS);
    const std::vector<uint8_t> before = WholeDisk();

    EXPECT_EQ(ResizePartition(kTwoTiB + 1048576, 1024), Status(0xC000000D));
    EXPECT_EQ(RemovePartition(kTwoTiB + 1048576), Status(0xC000000D));
    EXPECT_EQ(WholeDisk(), before);
}

TEST_F(MbrTableEditTest, SectorsAreCountedInTheirOwnSize)
{
    for (const uint32_t bytes : {512u, 520u, 4096u}) {
        UseMbr({}, bytes);

        EXPECT_EQ(AddPartition(uint64_t{bytes} * 1000, uint64_t{bytes} * 77), KK_STATUS_SUCCESS);
        EXPECT_EQ(Sectors(0), std::pair(uint64_t{1000}, uint64_t{77}));
        EXPECT_EQ(ResizePartition(uint64_t{bytes} * 1000, uint64_t{bytes} * 99), KK_STATUS_SUCCESS);
        EXPECT_EQ(Sectors(0), std::pair(uint64_t{1000}, uint64_t{99}));
        EXPECT_EQ(RemovePartition(uint64_t{bytes} * 1000), KK_STATUS_SUCCESS);
        EXPECT_EQ(Record(0), Record16(16));
    }
}

TEST_F(MbrTableEditTest, ASectorSizeOfZeroMeans512)
{
    UseMbr({}, 0);

    EXPECT_EQ(AddPartition(1048576, 104857600), KK_STATUS_SUCCESS);
    EXPECT_EQ(Sectors(0), std::pair(uint64_t{2048}, uint64_t{204800}));
    EXPECT_EQ(ResizePartition(1048576, 512), KK_STATUS_SUCCESS);
    EXPECT_EQ(Sectors(0), std::pair(uint64_t{2048}, uint64_t{1}));
    EXPECT_EQ(RemovePartition(1048576), KK_STATUS_SUCCESS);
    EXPECT_EQ(Record(0), Record16(16));
}

TEST_F(MbrTableEditTest, SectorsThatNoTableFitsAreRefused)
{
    for (const auto& [bytes, status] :
         {std::pair{1u, 0xC000014Cu}, std::pair{64u, 0xC000014Cu}, std::pair{0xFFFFFFFFu, 0xC0000017u}}) {
        UseMbr({7}, bytes);
        const std::vector<uint8_t> before = WholeDisk();

        EXPECT_EQ(AddPartition(1048576, 4096), Status(status));
        EXPECT_EQ(number, kUntouched);
        EXPECT_EQ(RemovePartition(1048576), Status(status));
        EXPECT_EQ(ResizePartition(1048576, 4096), Status(status));
        EXPECT_EQ(WholeDisk(), before);
    }
}

TEST_F(MbrTableEditTest, APartitionIsMeantByTheSectorOfItsStart)
{
    UseMbr({7, 7});

    EXPECT_EQ(RemovePartition(100 * 512 - 1), Status(0xC000000D));
    EXPECT_EQ(RemovePartition(101 * 512), Status(0xC000000D));
    EXPECT_EQ(RemovePartition(100 * 512 + 511), KK_STATUS_SUCCESS);
    EXPECT_EQ(Record(0), Record16(16));
}

TEST_F(MbrTableEditTest, TheNumberIsOptionalAndTheSlotOfAFailedWriteIsTold)
{
    UseMbr({7});
    FailWrite(1, 0xC0000185);
    EXPECT_EQ(AddPartition(1048576, 4096), Status(0xC0000185));
    EXPECT_EQ(number, 2u);

    EXPECT_EQ(AddPartitionEntry(*target, 512, PartitionStyle::Mbr, 1048576, 4096, kGptType, 7, nullptr),
              KK_STATUS_SUCCESS);
    EXPECT_EQ(Sectors(1), std::pair(uint64_t{2048}, uint64_t{8}));
}

TEST_F(MbrTableEditTest, FailuresArePassedOn)
{
    UseMbr({7, 7, 7, 7});
    EXPECT_EQ(AddPartition(1048576, 4096), Status(0xC000007F));

    FailWrite(1, 0xC0000185);
    EXPECT_EQ(ResizePartition(51200, 1024), Status(0xC0000185));
    ASSERT_TRUE(storage->Write(510, std::vector<uint8_t>(1)));
    EXPECT_EQ(RemovePartition(51200), Status(0xC000014C));
}

}  // namespace
}  // namespace kk
