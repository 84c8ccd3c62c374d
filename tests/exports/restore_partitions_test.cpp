#include "exports/support/restore_test.h"
#include "exports/support/table_on_disk.h"
#include "machine/layout_parser.h"

// Which partitions KkRestorePartitions writes, where to, and under which table.

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class RestorePartitionsTest : public RestoreTest {
protected:
    static constexpr uint64_t kSize = 32 * kMiB;
    static constexpr Place kFirst = {kMiB, 2 * kMiB};
    static constexpr Place kSecond = {4 * kMiB, kMiB + 512};
    static constexpr Place kThird = {8 * kMiB, 9 * kMiB};

    RestorePartitionsTest()
    {
        MakeImage(kSmallGpt, {kFirst, kSecond, kThird}, kSize);
        AddTarget(kSize);
    }

    void ExpectRestored(const Place& place) { RestoreTest::ExpectRestored(place.start, place.start, place.length); }
    void ExpectOld(const Place& place) { RestoreTest::ExpectOld(place.start, place.length); }

    /// The table of disk 0 as its bytes tell it in sectors of a size that need not be the disk's.
    std::vector<Place> PlacesOnTarget(uint32_t sectorSize) const
    {
        machine::MemoryStorage copy(Target().Size());
        EXPECT_TRUE(copy.Write(0, Target().ReadBytes(0, Target().Size())));
        machine::Layout layout;
        EXPECT_TRUE(machine::ParseGpt(copy, sectorSize, layout));
        std::vector<Place> places;
        for (const kk::PartitionInformationEx& entry : layout.partitions) {
            places.push_back(
                {static_cast<uint64_t>(entry.startingOffset), static_cast<uint64_t>(entry.partitionLength)});
        }
        return places;
    }
};

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

TEST_F(RestorePartitionsTest, WithoutANewTableTheTargetKeepsItsOwn)
{
    SHOWS(KkRestorePartitions, KK_STATUS_SUCCESS,
          "without a new table the disk keeps its own, and only the partitions change");

    AddTarget(kSmallGpt, {{20 * kMiB, kMiB}}, kSize);
    const DiskBytes before(Target());

    EXPECT_EQ(RestorePartitions(), 0);

    before.ExpectUnchangedBut({kFirst, kSecond, kThird});
}

TEST_F(RestorePartitionsTest, AnyNumberButZeroAsksForANewTable)
{
    SHOWS(KkRestorePartitions, KK_STATUS_SUCCESS, "any number but 0 asks for a new table");

    for (const int32_t yes : {1, 0x100, -1, Status(0x80000000)}) {
        AddTarget(kSize);

        EXPECT_EQ(RestorePartitions({}, yes), 0);

        EXPECT_THAT(PlacesOnTarget(512), ElementsAre(kFirst, kSecond, kThird)) << std::hex << yes;
    }
}

TEST_F(RestorePartitionsTest, TheNewTableSaysWhatTheImagesSaysButForAttributes)
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

TEST_F(RestorePartitionsTest, TheNewTableHoldsTheChosenPartitionsAlone)
{
    SHOWS(KkRestorePartitions, KK_STATUS_SUCCESS, "the new GPT lists the chosen partitions alone");

    EXPECT_EQ(RestorePartitions({3, 1}, 1), 0);

    EXPECT_THAT(PlacesOnTarget(512), ElementsAre(kFirst, kThird));
    ExpectOld(kSecond);
}

TEST_F(RestorePartitionsTest, MorePartitionsThanAListBeginsWith)
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

TEST_F(RestorePartitionsTest, SectorsOf4096BytesAreRestoredAsTheyAre)
{
    SHOWS(KkRestorePartitions, KK_STATUS_SUCCESS, "sectors of 4096 bytes are restored as they are");

    MakeImage(kLargeGpt, {kFirst, {4 * kMiB, kMiB + 4096}}, kSize);
    AddTarget(kSize, 4096);

    EXPECT_EQ(RestorePartitions({}, 1), 0);

    EXPECT_EQ(ReadSlots(Target(), kLargeGpt), (std::vector<std::optional<Place>>{kFirst, {{4 * kMiB, kMiB + 4096}}}));
    ExpectRestored(kFirst);
    ExpectRestored(Place{4 * kMiB, kMiB + 4096});
}

TEST_F(RestorePartitionsTest, TheImagesSectorSizeCountsAndNotTheTargets)
{
    SHOWS(KkRestorePartitions, KK_STATUS_SUCCESS, "the image's sector size is used for the table, and not the disk's");

    MakeImage(kLargeGpt, {kFirst, kThird}, kSize);

    EXPECT_EQ(RestorePartitions({}, 1), 0);

    EXPECT_THAT(PlacesOnTarget(4096), ElementsAre(kFirst, kThird));
    ExpectRestored(kThird);
}

TEST_F(RestorePartitionsTest, AnImageOfSmallSectorsDoesNotGoOntoADiskOfLargeOnes)
{
    SHOWS(KkRestorePartitions, KK_STATUS_INVALID_PARAMETER,
          "a disk of large sectors refuses a table of small ones; nothing changes");

    AddTarget(kSize, 4096);

    EXPECT_EQ(RestorePartitions({1}, 1), KK_STATUS_INVALID_PARAMETER) << "as the disk answers a write of 512 bytes";

    ExpectOld({0, kSize});
}

TEST_F(RestorePartitionsTest, ATargetMayEnd34SectorsBehindTheLastPartition)
{
    SHOWS(KkRestorePartitions, KK_STATUS_SUCCESS, "the disk may end 34 sectors behind the last partition");

    const uint64_t end = kThird.start + kThird.length;
    AddTarget(end + 34 * 512);

    EXPECT_EQ(RestorePartitions({}, 1), 0);

    ExpectRestored(kThird);
    EXPECT_THAT(PlacesOnTarget(512), ElementsAre(kFirst, kSecond, kThird));
}

TEST_F(RestorePartitionsTest, ATargetThatIsASectorShorterIsLeftUntouched)
{
    SHOWS(KkRestorePartitions, KK_STATUS_BUFFER_TOO_SMALL,
          "the disk is a sector too short, with and without a new table; nothing is written");
    SHOWS(KkRestorePartitions, KK_STATUS_SUCCESS, "only chosen partitions need room");

    const uint64_t size = kThird.start + kThird.length + 33 * 512;
    AddTarget(size);

    for (const int32_t writeTable : {0, 1}) {
        EXPECT_EQ(RestorePartitions({}, writeTable), KK_STATUS_BUFFER_TOO_SMALL);
        ExpectOld({0, size});
        EXPECT_THAT(written, IsEmpty());
    }
    EXPECT_EQ(RestorePartitions({1, 2}), 0) << "only the chosen ones need room";
}

TEST_F(RestorePartitionsTest, OfASectorThatIsNotWholeNothingCounts)
{
    SHOWS(KkRestorePartitions, KK_STATUS_BUFFER_TOO_SMALL, "a size that is no whole sector is rounded down");
    SHOWS(KkRestorePartitions, KK_STATUS_SUCCESS, "a part of a sector more does no harm");

    const uint64_t end = kThird.start + kThird.length;
    PretendSize("PhysicalDrive0", static_cast<int64_t>(end + 34 * 512 - 1));
    EXPECT_EQ(RestorePartitions({}), KK_STATUS_BUFFER_TOO_SMALL);

    PretendSize("PhysicalDrive0", static_cast<int64_t>(end + 34 * 512 + 511));
    EXPECT_EQ(RestorePartitions({}), 0);
}

TEST_F(RestorePartitionsTest, LargeSectorsKeep34OfThemFree)
{
    SHOWS(KkRestorePartitions, KK_STATUS_SUCCESS, "34 sectors of 4096 bytes are kept free");
    SHOWS(KkRestorePartitions, KK_STATUS_BUFFER_TOO_SMALL,
          "33 sectors of 4096 bytes behind the last partition are too few");

    MakeImage(kLargeGpt, {kFirst}, kSize);
    AddTarget(3 * kMiB + 34 * 4096, 4096);
    EXPECT_EQ(RestorePartitions({}, 1), 0);

    AddTarget(3 * kMiB + 33 * 4096, 4096);
    EXPECT_EQ(RestorePartitions({}, 1), KK_STATUS_BUFFER_TOO_SMALL);
}

TEST_F(RestorePartitionsTest, ATargetOfNoMoreThan34SectorsHasNoRoom)
{
    SHOWS(KkRestorePartitions, KK_STATUS_BUFFER_TOO_SMALL, "a disk of no more than 34 sectors has no room");

    for (const int64_t size : {1, 512, 33 * 512, 34 * 512, 35 * 512}) {
        PretendSize("PhysicalDrive0", size);

        EXPECT_EQ(RestorePartitions({}, 1), KK_STATUS_BUFFER_TOO_SMALL) << size;
    }
    ExpectOld({0, kSize});
}

TEST_F(RestorePartitionsTest, APlaceThatNoDiskHasDoesNotFit)
{
    SHOWS(KkRestorePartitions, KK_STATUS_BUFFER_TOO_SMALL,
          "places that no disk has do not fit, also when their ends wrap");

    struct Entry {
        uint64_t firstLba;
        uint64_t lastLba;
    };
    const Entry entries[] = {
        {2048, 0x7FFFFFFFFFFFFE},          // as long as 64 bits tell
        {2048, 2046},                      // a length of -1 sector
        {0x7FFFFFFFFFFFFF, 2048},          // a start of -1 sector, and an end that wraps around to the disk's beginning
        {2048, uint64_t{1} << 54},         // far behind the disk
        {65536 - 34, 65536 - 34},          // a sector in the reserve
        {uint64_t{1} << 40, (1ull << 40)}  // wholly behind the disk
    };
    for (const Entry& entry : entries) {
        PutInImage(1024 + 32, machine::BytesOf(entry));

        EXPECT_EQ(RestorePartitions({1}, 1), KK_STATUS_BUFFER_TOO_SMALL) << entry.firstLba << " to " << entry.lastLba;

        EXPECT_THAT(written, IsEmpty());
    }
}

TEST_F(RestorePartitionsTest, TheReserveIsKeptEvenWhereTheImagesOwnTableEndsLater)
{
    SHOWS(KkRestorePartitions, KK_STATUS_BUFFER_TOO_SMALL,
          "the last 34 sectors are kept free also where the image's own table goes further");
    SHOWS(KkRestorePartitions, KK_STATUS_SUCCESS, "a partition up to the last 34 sectors fits");

    // The last sector that such a table may use is the 34th from the end.
    MakeImage(kSmallGpt, {{kSize - 34 * 512 - 4096, 4096 + 512}}, kSize);
    EXPECT_EQ(RestorePartitions({}), KK_STATUS_BUFFER_TOO_SMALL);

    MakeImage(kSmallGpt, {{kSize - 34 * 512 - 4096, 4096}}, kSize);
    EXPECT_EQ(RestorePartitions({}), 0);
}

TEST_F(RestorePartitionsTest, ATargetThatDoesNotTellItsSizeIsNotMeasured)
{
    SHOWS(KkRestorePartitions, KK_STATUS_SUCCESS, "a disk that does not tell its size is not measured");
    SHOWS(KkRestorePartitions, 0xC0000015, "a disk that does not tell its size refuses what does not fit");

    AddTarget(16 * kMiB);
    Fail({.code = 0x7405C}, 0xC0000010);

    EXPECT_EQ(RestorePartitions({1, 2}), 0);
    ExpectRestored(kFirst);
    ExpectRestored(kSecond);

    EXPECT_EQ(RestorePartitions(), machine::kNonexistentSector) << "the disk itself refuses what does not fit";
}

TEST_F(RestorePartitionsTest, ATargetThatDoesNotTellItsSizeGetsATableOfTheImagesSize)
{
    SHOWS(KkRestorePartitions, KK_STATUS_SUCCESS,
          "a disk that does not tell its size gets a table of the image's size");

    AddTarget(kSize + 8 * kMiB);
    PretendSize("PhysicalDrive0", 0);

    EXPECT_EQ(RestorePartitions({}, 1), 0);

    EXPECT_EQ(ReadGpt(Target(), 1).header.otherLba, kSize / 512 - 1);
    EXPECT_TRUE(ReadGpt(Target(), kSize / 512 - 1).sound);
}

TEST_F(RestorePartitionsTest, WithoutASizeALengthBeyondTheImageEndsWithTheImage)
{
    SHOWS(KkRestorePartitions, KK_STATUS_SUCCESS,
          "without the disk's size a length beyond the image ends with the image");

    AddTarget(kSize + 8 * kMiB);
    PutInImage(1024 + 40, machine::BytesOf(uint64_t{1} << 50));
    PretendSize("PhysicalDrive0", 0);

    EXPECT_EQ(RestorePartitions({1}), 0);

    // The last chunk has the second copy of the table in it. It is written whole, with zeros for what the image lacks.
    EXPECT_THAT(written, ElementsAre(Place{kMiB, kTransfer}, Place{kMiB + kTransfer, kTransfer},
                                     Place{kMiB + 3 * kTransfer, kTransfer}));
    RestoreTest::ExpectRestored(kMiB, kMiB, 2 * kTransfer);
    RestoreTest::ExpectRestored(25 * kMiB, 25 * kMiB, 7 * kMiB);
    EXPECT_EQ(Target().ReadBytes(kSize, kMiB), std::vector<uint8_t>(kMiB));
    ExpectOld({33 * kMiB, 7 * kMiB});
}

TEST_F(RestorePartitionsTest, ALargerTargetGetsATableOfItsOwnSize)
{
    SHOWS(KkRestorePartitions, KK_STATUS_SUCCESS, "a larger disk gets a table of its own size");

    AddTarget(kSize + 8 * kMiB);

    EXPECT_EQ(RestorePartitions({}, 1), 0);

    const uint64_t lastLba = (kSize + 8 * kMiB) / 512 - 1;
    EXPECT_EQ(ReadGpt(Target(), 1).header.otherLba, lastLba);
    EXPECT_EQ(ReadGpt(Target(), 1).header.lastUsableLba, lastLba - 33);
    EXPECT_TRUE(ReadGpt(Target(), lastLba).sound);
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

TEST_F(RestorePartitionsTest, TheTargetIsToldNothingOfItsNewPartitions)
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
