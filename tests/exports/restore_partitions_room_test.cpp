#include "exports/support/restore_partitions_test.h"

// How much room KkRestorePartitions wants of the disk.

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class RestorePartitionsRoomTest : public RestorePartitionsTest {};

TEST_F(RestorePartitionsRoomTest, ATargetMayEnd34SectorsBehindTheLastPartition)
{
    SHOWS(KkRestorePartitions, KK_STATUS_SUCCESS, "the disk may end 34 sectors behind the last partition");

    const uint64_t end = kThird.start + kThird.length;
    AddTarget(end + 34 * 512);

    EXPECT_EQ(RestorePartitions({}, 1), 0);

    ExpectRestored(kThird);
    EXPECT_THAT(PlacesOnTarget(512), ElementsAre(kFirst, kSecond, kThird));
}

TEST_F(RestorePartitionsRoomTest, ATargetThatIsASectorShorterIsLeftUntouched)
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

TEST_F(RestorePartitionsRoomTest, OfASectorThatIsNotWholeNothingCounts)
{
    SHOWS(KkRestorePartitions, KK_STATUS_BUFFER_TOO_SMALL, "a size that is no whole sector is rounded down");
    SHOWS(KkRestorePartitions, KK_STATUS_SUCCESS, "a part of a sector more does no harm");

    const uint64_t end = kThird.start + kThird.length;
    PretendSize("PhysicalDrive0", static_cast<int64_t>(end + 34 * 512 - 1));
    EXPECT_EQ(RestorePartitions({}), KK_STATUS_BUFFER_TOO_SMALL);

    PretendSize("PhysicalDrive0", static_cast<int64_t>(end + 34 * 512 + 511));
    EXPECT_EQ(RestorePartitions({}), 0);
}

TEST_F(RestorePartitionsRoomTest, LargeSectorsKeep34OfThemFree)
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

TEST_F(RestorePartitionsRoomTest, ATargetOfNoMoreThan34SectorsHasNoRoom)
{
    SHOWS(KkRestorePartitions, KK_STATUS_BUFFER_TOO_SMALL, "a disk of no more than 34 sectors has no room");

    for (const int64_t size : {1, 512, 33 * 512, 34 * 512, 35 * 512}) {
        PretendSize("PhysicalDrive0", size);

        EXPECT_EQ(RestorePartitions({}, 1), KK_STATUS_BUFFER_TOO_SMALL) << size;
    }
    ExpectOld({0, kSize});
}

TEST_F(RestorePartitionsRoomTest, APlaceThatNoDiskHasDoesNotFit)
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

TEST_F(RestorePartitionsRoomTest, TheReserveIsKeptEvenWhereTheImagesOwnTableEndsLater)
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

TEST_F(RestorePartitionsRoomTest, ATargetThatDoesNotTellItsSizeIsNotMeasured)
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

TEST_F(RestorePartitionsRoomTest, WithoutASizeATableNeedsAnImageWithRoomForTwoCopies)
{
    SHOWS(KkRestorePartitions, KK_STATUS_INVALID_PARAMETER,
          "the disk does not tell its size, and the image's disk has no room for a second table; the first is written");

    const std::vector<uint8_t> headerAndEntry = ImageBytes(512, 512 + 128);
    MakeBlankImage(4096, 512);
    PutInImage(512, headerAndEntry);
    constexpr uint64_t entryCountInHeader = 80;
    PutInImage(512 + entryCountInHeader, machine::BytesOf(uint32_t{1}));
    PretendSize("PhysicalDrive0", 0);

    EXPECT_EQ(RestorePartitions({}, 1), KK_STATUS_INVALID_PARAMETER);

    EXPECT_THAT(written, ElementsAre(Place{0, 512}, Place{512, 512}, Place{1024, 32 * 512}));
}

TEST_F(RestorePartitionsRoomTest, WithoutASizeALengthBeyondTheImageEndsWithTheImage)
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

}  // namespace
