#include "exports/support/restore_partitions_test.h"

// Under which table KkRestorePartitions puts the partitions.

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class RestorePartitionsTableTest : public RestorePartitionsTest {};

TEST_F(RestorePartitionsTableTest, WithoutANewTableTheTargetKeepsItsOwn)
{
    SHOWS(KkRestorePartitions, KK_STATUS_SUCCESS,
          "without a new table the disk keeps its own, and only the partitions change");

    AddTarget(kSmallGpt, {{20 * kMiB, kMiB}}, kSize);
    const DiskBytes before(Target());

    EXPECT_EQ(RestorePartitions(), 0);

    before.ExpectUnchangedBut({kFirst, kSecond, kThird});
}

TEST_F(RestorePartitionsTableTest, AnyNumberButZeroAsksForANewTable)
{
    SHOWS(KkRestorePartitions, KK_STATUS_SUCCESS, "any number but 0 asks for a new table");

    for (const int32_t yes : {1, 0x100, -1, Status(0x80000000)}) {
        AddTarget(kSize);

        EXPECT_EQ(RestorePartitions({}, yes), 0);

        EXPECT_THAT(PlacesOnTarget(512), ElementsAre(kFirst, kSecond, kThird)) << std::hex << yes;
    }
}

TEST_F(RestorePartitionsTableTest, TheNewTableSaysWhatTheImagesSaysButForAttributes)
{
    SHOWS(KkRestorePartitions, KK_STATUS_SUCCESS,
          "the new GPT keeps disk and partition GUIDs, types and names, not the attributes");

    const kk::Guid id = {0x12345678, 0x9ABC, 0xDEF0, {1, 2, 3, 4, 5, 6, 7, 8}};
    const kk::Guid diskId = {0x55555555, 0x6666, 0x7777, {8, 7, 6, 5, 4, 3, 2, 1}};
    const std::u16string longName = u"A name that takes all the 36 units !";
    MakeImage(kSmallGpt,
              machine::GptTable{.partitions = {{.start = kFirst.start,
                                                .length = kFirst.length,
                                                .type = machine::kEfiSystemType,
                                                .id = id,
                                                .name = longName,
                                                .attributes = 0x8000000000000001,
                                                .slot = 6}},
                                .diskId = diskId},
              kSize);

    EXPECT_EQ(RestorePartitions({}, 1), 0);

    const uint64_t lastLba = kSize / 512 - 1;
    for (const uint64_t headerLba : {uint64_t{1}, lastLba}) {
        const GptOnDisk table = ReadGpt(Target(), headerLba);
        EXPECT_TRUE(table.sound);
        const machine::GptEntryRecord& entry = table.entries.at(0);
        EXPECT_EQ(table.Slots(512).at(0), kFirst) << "in the first slot";
        EXPECT_EQ(machine::BytesOf(entry.type), machine::BytesOf(machine::kEfiSystemType));
        EXPECT_EQ(machine::BytesOf(entry.id), machine::BytesOf(id));
        EXPECT_EQ(std::u16string(entry.name, 36), longName);
        EXPECT_EQ(entry.attributes, 0u);
        EXPECT_EQ(machine::BytesOf(table.header.diskId), machine::BytesOf(diskId));
    }
}

TEST_F(RestorePartitionsTableTest, TheNewTableHoldsTheChosenPartitionsAlone)
{
    SHOWS(KkRestorePartitions, KK_STATUS_SUCCESS, "the new GPT lists the chosen partitions alone");

    EXPECT_EQ(RestorePartitions({3, 1}, 1), 0);

    EXPECT_THAT(PlacesOnTarget(512), ElementsAre(kFirst, kThird));
    ExpectOld(kSecond);
}

TEST_F(RestorePartitionsTableTest, MorePartitionsThanAListBeginsWith)
{
    SHOWS(KkRestorePartitions, KK_STATUS_SUCCESS, "twenty partitions are restored");

    std::vector<Place> places;
    for (uint64_t i = 1; i <= 20; ++i) {
        places.push_back({i * kMiB, 4096});
    }
    MakeImage(kSmallGpt, places, kSize);

    EXPECT_EQ(RestorePartitions({}, 1), 0);

    EXPECT_EQ(PlacesOnTarget(512), places);
    for (const Place& place : places) {
        ExpectRestored(place);
    }
}

TEST_F(RestorePartitionsTableTest, SectorsOf4096BytesAreRestoredAsTheyAre)
{
    SHOWS(KkRestorePartitions, KK_STATUS_SUCCESS, "sectors of 4096 bytes are restored as they are");

    MakeImage(kLargeGpt, {kFirst, {4 * kMiB, kMiB + 4096}}, kSize);
    AddTarget(kSize, 4096);

    EXPECT_EQ(RestorePartitions({}, 1), 0);

    EXPECT_EQ(ReadSlots(Target(), kLargeGpt), (std::vector<std::optional<Place>>{kFirst, {{4 * kMiB, kMiB + 4096}}}));
    ExpectRestored(kFirst);
    ExpectRestored(Place{4 * kMiB, kMiB + 4096});
}

TEST_F(RestorePartitionsTableTest, TheImagesSectorSizeCountsAndNotTheTargets)
{
    SHOWS(KkRestorePartitions, KK_STATUS_SUCCESS, "the image's sector size is used for the table, and not the disk's");

    MakeImage(kLargeGpt, {kFirst, kThird}, kSize);

    EXPECT_EQ(RestorePartitions({}, 1), 0);

    EXPECT_THAT(PlacesOnTarget(4096), ElementsAre(kFirst, kThird));
    ExpectRestored(kThird);
}

TEST_F(RestorePartitionsTableTest, AnImageOfSmallSectorsDoesNotGoOntoADiskOfLargeOnes)
{
    SHOWS(KkRestorePartitions, KK_STATUS_INVALID_PARAMETER,
          "a disk of large sectors refuses a table of small ones; nothing changes");

    AddTarget(kSize, 4096);

    EXPECT_EQ(RestorePartitions({1}, 1), KK_STATUS_INVALID_PARAMETER) << "as the disk answers a write of 512 bytes";

    ExpectOld({0, kSize});
}

TEST_F(RestorePartitionsTableTest, ATargetThatDoesNotTellItsSizeGetsATableOfTheImagesSize)
{
    SHOWS(KkRestorePartitions, KK_STATUS_SUCCESS,
          "a disk that does not tell its size gets a table of the image's size");

    AddTarget(kSize + 8 * kMiB);
    PretendSize("PhysicalDrive0", 0);

    EXPECT_EQ(RestorePartitions({}, 1), 0);

    EXPECT_EQ(ReadGpt(Target(), 1).header.otherLba, kSize / 512 - 1);
    EXPECT_TRUE(ReadGpt(Target(), kSize / 512 - 1).sound);
}

TEST_F(RestorePartitionsTableTest, ALargerTargetGetsATableOfItsOwnSize)
{
    SHOWS(KkRestorePartitions, KK_STATUS_SUCCESS, "a larger disk gets a table of its own size");

    AddTarget(kSize + 8 * kMiB);

    EXPECT_EQ(RestorePartitions({}, 1), 0);

    const uint64_t lastLba = (kSize + 8 * kMiB) / 512 - 1;
    EXPECT_EQ(ReadGpt(Target(), 1).header.otherLba, lastLba);
    EXPECT_EQ(ReadGpt(Target(), 1).header.lastUsableLba, lastLba - 33);
    EXPECT_TRUE(ReadGpt(Target(), lastLba).sound);
}

TEST_F(RestorePartitionsTableTest, TheTargetIsToldNothingOfItsNewPartitions)
{
    SHOWS(KkRestorePartitions, KK_STATUS_SUCCESS,
          "the system is not told of the new table; it shows it after it has read the disk again");

    EXPECT_EQ(RestorePartitions({}, 1), 0);

    EXPECT_EQ(machine.journal.Count({.code = 0x70140}), 0u);
    EXPECT_THAT(DriverKnows(), IsEmpty());
    Target().Rescan();
    EXPECT_THAT(DriverKnows(), ElementsAre(kFirst, kSecond, kThird));
}

}  // namespace
