#include "exports/support/partition_edit_test.h"
#include "machine/text.h"

// What a new partition's entry holds, and which one it is.

namespace {

constexpr uint64_t kStart = 1048576;
constexpr uint64_t kLength = 104857600;

class CreatePartitionEntryTest : public PartitionEditTest {};

TEST_F(CreatePartitionEntryTest, AGptEntryIsABasicDataPartitionOfTheUsualName)
{
    SHOWS(KkCreatePartition, KK_STATUS_SUCCESS,
          "a GPT entry is of the type basic data with the usual name and no attributes");

    AddDisk(kSmallGpt, {}, kGiB);

    ASSERT_EQ(Create(kStart, kLength), 0);

    const machine::GptEntryRecord entry = ReadGpt(TheDisk(), 1).entries[0];
    EXPECT_EQ(entry.type, machine::kBasicDataType);
    EXPECT_EQ(entry.firstLba, 2048u);
    EXPECT_EQ(entry.lastLba, 206847u);
    EXPECT_EQ(entry.attributes, 0u);
    EXPECT_EQ(std::u16string(entry.name, 36), u"Basic data partition" + std::u16string(16, u'\0'));
}

TEST_F(CreatePartitionEntryTest, ItsIdentifierIsARandomOneThatDependsOnTheTimeAlone)
{
    SHOWS(KkCreatePartition, KK_STATUS_SUCCESS,
          "the identifier is a random GUID of version 4 that depends on the time alone");

    const auto identifier = [this](int64_t time) {
        AddDisk(kSmallGpt, {});
        machine.clock.SetTime(time);
        machine.clock.SetTick(0);
        EXPECT_EQ(Create(kStart, 8 * kMiB), 0);
        return ReadGpt(TheDisk(), 1).entries[0].id;
    };
    const kk::Guid first = identifier(132000000000000000);

    EXPECT_EQ(first.data3 >> 12, 4) << "the version";
    EXPECT_EQ(first.data4[0] >> 6, 2) << "the variant";
    EXPECT_EQ(identifier(132000000000000000), first);
    EXPECT_NE(identifier(132000000000000001), first);
}

TEST_F(CreatePartitionEntryTest, AnMbrRecordIsAnInactivePartitionBeyondTheReachOfCylinders)
{
    SHOWS(KkCreatePartition, KK_STATUS_SUCCESS,
          "an MBR entry is inactive, of type 0x07, and beyond the reach of cylinders");

    for (const DiskKind& kind : {kSmallMbr, kLargeMbr}) {
        AddDisk(kind, {}, kGiB);

        ASSERT_EQ(Create(kStart, kLength), 0);

        const machine::MbrEntryRecord record = ReadMbr(TheDisk()).entries[0];
        EXPECT_EQ(record.status, 0);
        EXPECT_THAT(record.firstChs, ::testing::ElementsAre(0xFE, 0xFF, 0xFF));
        EXPECT_EQ(record.type, 0x07);
        EXPECT_THAT(record.lastChs, ::testing::ElementsAre(0xFE, 0xFF, 0xFF));
        EXPECT_EQ(record.firstSector, kStart / kind.sectorSize);
        EXPECT_EQ(record.sectorCount, kLength / kind.sectorSize);
    }
}

TEST_F(CreatePartitionEntryTest, TheFirstUnusedSlotIsFilled)
{
    SHOWS(KkCreatePartition, KK_STATUS_SUCCESS, "the first unused entry of the table is filled");

    for (const DiskKind& kind : kDiskKinds) {
        AddDisk(kind, {{kMiB, kMiB}, {4 * kMiB, kMiB}, {8 * kMiB, kMiB}});
        ASSERT_EQ(Delete(4 * kMiB), 0);

        ASSERT_EQ(Create(16 * kMiB, 2 * kMiB), 0);

        const std::vector<Place> expected = {{kMiB, kMiB}, {16 * kMiB, 2 * kMiB}, {8 * kMiB, kMiB}};
        EXPECT_EQ(Partitions(), expected) << kind;
    }
}

TEST_F(CreatePartitionEntryTest, OnlyThatEntryAndTheChecksumsChange)
{
    SHOWS(KkCreatePartition, KK_STATUS_SUCCESS,
          "nothing on the disk changes but that entry and the checksums, in both copies of a GPT");

    for (const DiskKind& kind : kDiskKinds) {
        AddDisk(kind, {{kMiB, kMiB}, {4 * kMiB, kMiB}});
        const DiskBytes before(TheDisk());

        ASSERT_EQ(Create(16 * kMiB, 8 * kMiB), 0);

        before.ExpectUnchangedBut(BytesOfEntry(kind, kDiskSize, 2));
        EXPECT_EQ(ReadSlots(TheDisk(), kind)[2], (Place{16 * kMiB, 8 * kMiB})) << kind;
    }
}

TEST_F(CreatePartitionEntryTest, AVolumeArrivesWithThePartition)
{
    SHOWS(KkCreatePartition, KK_STATUS_SUCCESS, "a volume without a letter arrives with the partition");

    for (const DiskKind& kind : kDiskKinds) {
        AddDisk(kind, {});

        ASSERT_EQ(Create(4 * kMiB, 8 * kMiB), 0);

        ASSERT_NE(machine.FindVolume(0, 4 * kMiB), nullptr) << kind;
        EXPECT_EQ(machine.FindVolume(0, 4 * kMiB)->Length(), 8 * kMiB);
        EXPECT_EQ(machine.FindVolume(0, 4 * kMiB)->Letter(), std::nullopt);
    }
}

TEST_F(CreatePartitionEntryTest, DataThatLiesThereStays)
{
    SHOWS(KkCreatePartition, KK_STATUS_SUCCESS, "data that lies there stays");

    AddDisk(kSmallGpt, {});
    TheDisk().WriteBytes(4 * kMiB, std::vector<uint8_t>(kMiB, 0x5A));

    ASSERT_EQ(Create(4 * kMiB, 8 * kMiB), 0);

    EXPECT_EQ(TheDisk().ReadBytes(4 * kMiB, kMiB), std::vector<uint8_t>(kMiB, 0x5A));
}

}  // namespace
