#include "exports/support/restore_partitions_test.h"

// Which partitions KkRestorePartitions writes.

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST_F(RestorePartitionsTest, NoNumbersMeanEveryPartition)
{
    SHOWS(KkRestorePartitions, KK_STATUS_SUCCESS, "a count of 0 means every partition");

    EXPECT_EQ(RestorePartitions(), 0);

    ExpectRestored(kFirst);
    ExpectRestored(kSecond);
    ExpectRestored(kThird);
}

TEST_F(RestorePartitionsTest, NoNumbersMeanEveryPartitionWhateverTheListHolds)
{
    SHOWS(KkRestorePartitions, KK_STATUS_SUCCESS, "a count of 0 means every partition, whatever the list holds");

    const uint32_t numbers[] = {2};
    BeginCall();

    EXPECT_EQ(api.restorePartitions(ImagePath().c_str(), u"\\\\.\\PhysicalDrive0", numbers, 0, 0), 0);

    ExpectRestored(kFirst);
    ExpectRestored(kThird);
}

TEST_F(RestorePartitionsTest, OnlyTheNamedOnesAreWritten)
{
    SHOWS(KkRestorePartitions, KK_STATUS_SUCCESS, "only the chosen partitions are written");

    EXPECT_EQ(RestorePartitions({2}), 0);

    ExpectRestored(kSecond);
    EXPECT_THAT(written, ElementsAre(kSecond)) << "and nothing else";
}

TEST_F(RestorePartitionsTest, OnlyTheGivenCountOfNumbersIsLookedAt)
{
    SHOWS(KkRestorePartitions, KK_STATUS_SUCCESS, "only as many numbers as the count says are looked at");

    const uint32_t numbers[] = {3, 1, 2};
    BeginCall();

    EXPECT_EQ(api.restorePartitions(ImagePath().c_str(), u"\\\\.\\PhysicalDrive0", numbers, 2, 0), 0);

    ExpectRestored(kFirst);
    ExpectRestored(kThird);
    ExpectOld(kSecond);
}

TEST_F(RestorePartitionsTest, TheOrderIsTheTablesAndNothingIsWrittenTwice)
{
    SHOWS(KkRestorePartitions, KK_STATUS_SUCCESS,
          "the order is that of the table, and numbers given twice are written once");

    EXPECT_EQ(RestorePartitions({3, 7, 1, 3, 1}), 0);

    EXPECT_THAT(written, ElementsAre(kFirst, Place{kThird.start, kTransfer}, Place{kThird.start + kTransfer, kMiB}));
}

TEST_F(RestorePartitionsTest, NumbersThatTheImageDoesNotHaveAreNothingToRestore)
{
    SHOWS(KkRestorePartitions, KK_STATUS_INVALID_PARAMETER,
          "no number names a partition of the image; the target is not opened");

    EXPECT_EQ(RestorePartitions({0, 4, 128}, 1), KK_STATUS_INVALID_PARAMETER);

    EXPECT_THAT(Steps(), ElementsAre("open image", "read image", "close image")) << "the target is not even opened";
}

TEST_F(RestorePartitionsTest, NumbersAreSlotsOfTheTable)
{
    SHOWS(KkRestorePartitions, KK_STATUS_SUCCESS, "numbers are slots of the image's table");
    SHOWS(KkRestorePartitions, KK_STATUS_INVALID_PARAMETER, "numbers of unused slots name nothing");

    MakeImage(kSmallGpt,
              machine::GptTable{.partitions = {{.start = kMiB, .length = kMiB, .slot = 4},
                                               {.start = 2 * kMiB, .length = kMiB, .slot = 9}}},
              kSize);

    EXPECT_EQ(RestorePartitions({2}), KK_STATUS_INVALID_PARAMETER);
    EXPECT_EQ(RestorePartitions({10}), 0);

    EXPECT_THAT(written, ElementsAre(Place{2 * kMiB, kMiB}));
}

TEST_F(RestorePartitionsTest, ACountWithoutAListChoosesNothing)
{
    SHOWS(KkRestorePartitions, KK_STATUS_INVALID_PARAMETER, "a count without a list chooses nothing");

    BeginCall();

    EXPECT_EQ(api.restorePartitions(ImagePath().c_str(), u"\\\\.\\PhysicalDrive0", nullptr, 1, 1),
              KK_STATUS_INVALID_PARAMETER);

    EXPECT_THAT(Steps(), ElementsAre("open image", "read image", "close image"));
}

TEST_F(RestorePartitionsTest, AnImageThatDoesNotOpenComesBeforeACountWithoutAList)
{
    SHOWS(KkRestorePartitions, 0xC0000034, "the image does not open, which comes before a count without a list");

    EXPECT_EQ(api.restorePartitions(u"Z:\\nowhere.vhdx", u"\\\\.\\PhysicalDrive0", nullptr, 1, 1), Status(0xC0000034));
}

TEST_F(RestorePartitionsTest, BothPathsAreRequired)
{
    SHOWS(KkRestorePartitions, KK_STATUS_INVALID_PARAMETER, "a path is null; nothing is done");

    BeginCall();

    EXPECT_EQ(api.restorePartitions(nullptr, u"\\\\.\\PhysicalDrive0", nullptr, 0, 1), KK_STATUS_INVALID_PARAMETER);
    EXPECT_EQ(api.restorePartitions(ImagePath().c_str(), nullptr, nullptr, 0, 1), KK_STATUS_INVALID_PARAMETER);

    EXPECT_THAT(machine.journal.Records(), IsEmpty());
}

TEST_F(RestorePartitionsTest, AnImageWithoutPartitionsHasNothingToRestore)
{
    SHOWS(KkRestorePartitions, KK_STATUS_INVALID_PARAMETER, "the image has no partitions");

    MakeImage(kSmallGpt, std::vector<Place>{}, kSize);

    EXPECT_EQ(RestorePartitions({}, 1), KK_STATUS_INVALID_PARAMETER);

    EXPECT_EQ(StepsLike("drive"), 0u);
}

TEST_F(RestorePartitionsTest, AnImageWithAnMbrIsRefused)
{
    SHOWS(KkRestorePartitions, KK_STATUS_REGISTRY_CORRUPT, "the image has an MBR and no GPT");

    MakeImage(kSmallMbr, {kFirst}, kSize);

    EXPECT_EQ(RestorePartitions({}, 1), KK_STATUS_REGISTRY_CORRUPT);

    EXPECT_EQ(StepsLike("drive"), 0u);
}

TEST_F(RestorePartitionsTest, AnImageWhoseSectorsHoldNoTableIsRefused)
{
    SHOWS(KkRestorePartitions, KK_STATUS_REGISTRY_CORRUPT, "the image's sectors are too small for a table");

    for (const uint32_t sectorSize : {0u, 1u, 91u}) {
        MakeBlankImage(kSize, sectorSize);

        EXPECT_EQ(RestorePartitions({}, 1), KK_STATUS_REGISTRY_CORRUPT) << sectorSize;
    }
}

TEST_F(RestorePartitionsTest, AFileServesAsATarget)
{
    SHOWS(KkRestorePartitions, KK_STATUS_SUCCESS, "a plain file serves as a target");

    Shell("head -c 33554432 /dev/zero > '" + (folder / "disk.img").string() + "'");

    EXPECT_EQ(RestorePartitions({}, 1, WindowsPath(folder / "disk.img")), 0);

    const std::string file = ReadFile(folder / "disk.img");
    const std::vector<uint8_t> first = ImageBytes(kThird.start, kThird.length);
    EXPECT_TRUE(std::equal(first.begin(), first.end(), file.begin() + static_cast<ptrdiff_t>(kThird.start),
                           [](uint8_t one, char other) { return one == static_cast<uint8_t>(other); }));
}

}  // namespace
