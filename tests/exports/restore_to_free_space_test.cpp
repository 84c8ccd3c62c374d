#include "exports/support/restore_to_free_space_test.h"

// Where KkRestoreToFreeSpace makes its partition, of which length, and what it refuses.

namespace {

using machine::CallKind;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST_F(RestoreToFreeSpaceTest, ThePartitionFillsTheRegion)
{
    SHOWS(KkRestoreToFreeSpace, KK_STATUS_SUCCESS,
          "the partition fills the region and begins with the image's bytes; the system knows it");

    ASSERT_EQ(Restore(8 * kMiB, 16 * kMiB), 0);

    EXPECT_EQ(Added(), (Place{8 * kMiB, 16 * kMiB}));
    ExpectRestored(kSource, 8 * kMiB, kLength);
    ExpectOld(8 * kMiB + kLength, 16 * kMiB - kLength);
    EXPECT_THAT(DriverKnows(), ElementsAre(kTaken, Added()));
}

TEST_F(RestoreToFreeSpaceTest, ThePartitionKeepsItsSizeWhenAskedTo)
{
    SHOWS(KkRestoreToFreeSpace, KK_STATUS_SUCCESS,
          "any number but 0 keeps the size that the partition has in the image");

    for (const int32_t yes : {1, 0x100, -1, Status(0x80000000)}) {
        AddTarget(kSmallGpt, {kTaken}, kSize);

        ASSERT_EQ(Restore(8 * kMiB, 16 * kMiB, yes), 0);

        EXPECT_EQ(Added(), (Place{8 * kMiB, kLength})) << std::hex << yes;
    }
}

TEST_F(RestoreToFreeSpaceTest, TheEntryIsABasicDataPartitionWithTheUsualName)
{
    SHOWS(KkRestoreToFreeSpace, KK_STATUS_SUCCESS,
          "the entry is of the type basic data with the usual name, a new identifier and no attributes");

    ASSERT_EQ(Restore(8 * kMiB, 16 * kMiB), 0);

    for (const uint64_t headerLba : {uint64_t{1}, kSize / 512 - 1}) {
        const machine::GptEntryRecord entry = ReadGpt(Target(), headerLba).entries.at(1);
        EXPECT_EQ(machine::BytesOf(entry.type), machine::BytesOf(machine::kBasicDataType));
        EXPECT_EQ(std::u16string(entry.name), u"Basic data partition") << "and not the image's";
        EXPECT_NE(machine::BytesOf(entry.id), machine::BytesOf(machine::MadeUpPartitionId(1)));
        EXPECT_EQ(entry.attributes, 0u);
    }
}

TEST_F(RestoreToFreeSpaceTest, OnAnMbrDiskTheTypeIsThatOfNtfs)
{
    SHOWS(KkRestoreToFreeSpace, KK_STATUS_SUCCESS, "on an MBR disk the entry is of the type 0x07 and inactive");

    AddTarget(kSmallMbr, {kTaken}, kSize);

    ASSERT_EQ(Restore(8 * kMiB, 16 * kMiB), 0);

    EXPECT_EQ(Added(kSmallMbr), (Place{8 * kMiB, 16 * kMiB}));
    EXPECT_EQ(ReadMbr(Target()).entries[1].type, 0x07);
    EXPECT_EQ(ReadMbr(Target()).entries[1].status, 0);
    ExpectRestored(kSource, 8 * kMiB, kLength);
    EXPECT_THAT(DriverKnows(), ElementsAre(kTaken, Added(kSmallMbr)));
}

TEST_F(RestoreToFreeSpaceTest, TheStartIsTheNextMebibyteAndNeverTheDisksBeginning)
{
    SHOWS(KkRestoreToFreeSpace, KK_STATUS_SUCCESS, "the start is rounded up to the next MiB, never below 1 MiB");

    const std::pair<uint64_t, uint64_t> starts[] = {
        {0, kMiB}, {1, kMiB}, {kMiB, kMiB}, {kMiB + 1, 2 * kMiB}, {2 * kMiB - 1, 2 * kMiB}, {9 * kMiB, 9 * kMiB}};
    for (const auto& [regionStart, start] : starts) {
        AddTarget(kSmallGpt, {kTaken}, kSize);

        ASSERT_EQ(Restore(regionStart, 20 * kMiB - regionStart, 1), 0);

        EXPECT_EQ(Added(), (Place{start, kLength})) << regionStart;
        ExpectRestored(kSource, start, kLength);
    }
}

TEST_F(RestoreToFreeSpaceTest, TheRoomBeforeTheStartIsLost)
{
    SHOWS(KkRestoreToFreeSpace, KK_STATUS_SUCCESS, "the room before the rounded start is lost");

    ASSERT_EQ(Restore(8 * kMiB + 1, 5 * kMiB), 0);

    EXPECT_EQ(Added(), (Place{9 * kMiB, 4 * kMiB})) << "up to the last whole sector";
}

TEST_F(RestoreToFreeSpaceTest, ARegionMayReachFarBehindTheDisk)
{
    SHOWS(KkRestoreToFreeSpace, KK_STATUS_SUCCESS, "what of the region reaches past the disk is cut off");

    for (const uint64_t length : {kAll, kAll - 40 * kMiB, kSize}) {
        AddTarget(kSmallGpt, {kTaken}, kSize);
        ASSERT_EQ(Restore(40 * kMiB, length), 0);
        EXPECT_EQ(Added(), (Place{40 * kMiB, kUsableEnd - 40 * kMiB})) << "up to the last usable sector";

        AddTarget(kSmallMbr, {kTaken}, kSize);
        ASSERT_EQ(Restore(40 * kMiB, length), 0);
        EXPECT_EQ(Added(kSmallMbr), (Place{40 * kMiB, kSize - 40 * kMiB})) << "up to the disk's end";
    }
}

TEST_F(RestoreToFreeSpaceTest, ARegionThatBeginsBehindTheDiskHasNoRoom)
{
    SHOWS(KkRestoreToFreeSpace, KK_STATUS_BUFFER_TOO_SMALL, "a region behind the disk has no room");

    for (const uint64_t start : {kSize, kSize + kMiB, uint64_t{1} << 63, kAll - 1, kAll}) {
        for (const int32_t keepSize : {0, 1}) {
            ExpectRefused(KK_STATUS_BUFFER_TOO_SMALL, start, kAll, keepSize);
        }
    }
}

TEST_F(RestoreToFreeSpaceTest, ARegionOfExactlyTheLengthWillDo)
{
    SHOWS(KkRestoreToFreeSpace, KK_STATUS_SUCCESS, "a region of exactly the length will do");

    for (const int32_t keepSize : {0, 1}) {
        AddTarget(kSmallGpt, {kTaken}, kSize);

        ASSERT_EQ(Restore(8 * kMiB, kLength, keepSize), 0);

        EXPECT_EQ(Added(), (Place{8 * kMiB, kLength}));
    }
}

TEST_F(RestoreToFreeSpaceTest, ARegionThatIsAByteShorterWillNot)
{
    SHOWS(KkRestoreToFreeSpace, KK_STATUS_BUFFER_TOO_SMALL, "a region that is a byte shorter will not do");

    for (const int32_t keepSize : {0, 1}) {
        ExpectRefused(KK_STATUS_BUFFER_TOO_SMALL, 8 * kMiB, kLength - 1, keepSize);
        ExpectRefused(KK_STATUS_BUFFER_TOO_SMALL, 8 * kMiB, 0, keepSize);
    }
}

TEST_F(RestoreToFreeSpaceTest, LengthsAreWholeSectorsOfTheTarget)
{
    SHOWS(KkRestoreToFreeSpace, KK_STATUS_INVALID_PARAMETER,
          "a kept length is rounded up to the disk's sectors, but the disk refuses to be written a part of one");
    SHOWS(KkRestoreToFreeSpace, KK_STATUS_SUCCESS, "a length that fills the region is rounded down to whole sectors");

    AddTarget(kLargeGpt, {kTaken}, kSize);
    ASSERT_EQ(Restore(8 * kMiB, 16 * kMiB, 1), KK_STATUS_INVALID_PARAMETER)
        << "a disk of large sectors refuses to be written a part of one";
    EXPECT_EQ(Added(kLargeGpt), (Place{8 * kMiB, 3 * kMiB + 4096})) << "rounded up, and left in the table";

    MakeImage(kSmallGpt, {{kTinySource, 512}, {kSource, 3 * kMiB}}, 8 * kMiB);
    AddTarget(kLargeGpt, {kTaken}, kSize);
    ASSERT_EQ(Restore(8 * kMiB, 4 * kMiB + 4095), 0);
    EXPECT_EQ(Added(kLargeGpt), (Place{8 * kMiB, 4 * kMiB})) << "rounded down";
    ExpectRestored(kSource, 8 * kMiB, 3 * kMiB);
}

TEST_F(RestoreToFreeSpaceTest, WhatFitsOnlyBeforeItIsRoundedDoesNotFit)
{
    SHOWS(KkRestoreToFreeSpace, KK_STATUS_BUFFER_TOO_SMALL, "what fits only before it is rounded does not fit");

    AddTarget(kLargeGpt, {kTaken}, kSize);

    ExpectRefused(KK_STATUS_BUFFER_TOO_SMALL, 8 * kMiB, 3 * kMiB + 4095, 1);
    ExpectRefused(KK_STATUS_BUFFER_TOO_SMALL, 8 * kMiB, 3 * kMiB + 4095, 0);
    ExpectRefused(KK_STATUS_BUFFER_TOO_SMALL, 8 * kMiB, kLength, 1);
}

TEST_F(RestoreToFreeSpaceTest, APartitionAsLongAsNumbersGoDoesNotFit)
{
    SHOWS(KkRestoreToFreeSpace, KK_STATUS_BUFFER_TOO_SMALL, "lengths as large as numbers go do not fit");

    const uint64_t lastLba = 1024 + 128 + 40;
    for (const uint64_t value : {(uint64_t{1} << 55) + 2 * kMiB / 512 - 2, uint64_t{1} << 54, kAll}) {
        PutInImage(lastLba, machine::BytesOf(value));

        ExpectRefused(KK_STATUS_BUFFER_TOO_SMALL, 0, kAll, 1);
        ExpectRefused(KK_STATUS_BUFFER_TOO_SMALL, 0, kAll, 0);
    }
}

TEST_F(RestoreToFreeSpaceTest, APartitionOfNoLengthFitsWhereThereIsNoRoom)
{
    SHOWS(KkRestoreToFreeSpace, KK_STATUS_SUCCESS, "a partition of no length fits where there is no room");
    SHOWS(KkRestoreToFreeSpace, KK_STATUS_BUFFER_TOO_SMALL,
          "even a partition of no length has no place at the end of all numbers");

    PutInImage(1024 + 128 + 40, machine::BytesOf(kSource / 512 - 1));

    EXPECT_EQ(Restore(8 * kMiB, 0), 0);

    EXPECT_EQ(ReadGpt(Target(), 1).entries.at(1).firstLba, 8 * kMiB / 512);
    EXPECT_EQ(ReadGpt(Target(), 1).entries.at(1).lastLba, 8 * kMiB / 512 - 1);
    AddTarget(kSmallGpt, {kTaken}, kSize);
    ExpectRefused(KK_STATUS_BUFFER_TOO_SMALL, kAll, 0);
}

TEST_F(RestoreToFreeSpaceTest, AGptsUsableAreaLimitsTheRegion)
{
    SHOWS(KkRestoreToFreeSpace, KK_STATUS_SUCCESS, "the region is limited by what the GPT calls usable");

    PutOnTarget(kFirstUsableField, 5 * kMiB / 512 + 1);
    PutOnTarget(kLastUsableField, 20 * kMiB / 512 + 6);

    ASSERT_EQ(Restore(0, kAll), 0);

    EXPECT_EQ(Added(), (Place{6 * kMiB, 14 * kMiB + 7 * 512}));
}

TEST_F(RestoreToFreeSpaceTest, AUsableAreaIsNeverWidened)
{
    SHOWS(KkRestoreToFreeSpace, KK_STATUS_SUCCESS, "what the GPT calls usable never widens the region");

    PutOnTarget(kFirstUsableField, 0);
    PutOnTarget(kLastUsableField, kAll);

    ASSERT_EQ(Restore(8 * kMiB, 4 * kMiB), 0);

    EXPECT_EQ(Added(), (Place{8 * kMiB, 4 * kMiB}));
}

TEST_F(RestoreToFreeSpaceTest, AUsableAreaThatBeginsBeyondAllNumbersHasNoRoom)
{
    SHOWS(KkRestoreToFreeSpace, KK_STATUS_BUFFER_TOO_SMALL, "a usable area that begins beyond all numbers has no room");

    for (const uint64_t lba : {kAll, uint64_t{1} << 55, (uint64_t{1} << 55) + 16384}) {
        PutOnTarget(kFirstUsableField, lba);

        ExpectRefused(KK_STATUS_BUFFER_TOO_SMALL, 0, kAll, 1);
    }
}

TEST_F(RestoreToFreeSpaceTest, AUsableAreaWithoutSectorsHasNoRoom)
{
    SHOWS(KkRestoreToFreeSpace, KK_STATUS_BUFFER_TOO_SMALL, "a usable area without sectors has no room");

    PutOnTarget(kLastUsableField, 0);

    ExpectRefused(KK_STATUS_BUFFER_TOO_SMALL, 0, kAll, 1);
}

TEST_F(RestoreToFreeSpaceTest, AHeaderThatCannotBeReadLimitsNothing)
{
    SHOWS(KkRestoreToFreeSpace, KK_STATUS_SUCCESS, "a header that cannot be read limits nothing");

    machine.faults.Fail({.kind = CallKind::ReadFile, .object = "PhysicalDrive0"}, 1, 0xC0000185);

    ASSERT_EQ(Restore(40 * kMiB, kAll), 0);

    EXPECT_EQ(ReadGpt(Target(), 1).Slots(512).at(1), (Place{40 * kMiB, kSize - 40 * kMiB}));
}

TEST_F(RestoreToFreeSpaceTest, AHeaderWithoutItsSignatureLimitsNothingAndTakesNoPartition)
{
    SHOWS(KkRestoreToFreeSpace, KK_STATUS_REGISTRY_CORRUPT,
          "a header without its signature limits nothing and takes no partition");

    PutOnTarget(kFirstUsableField, kAll);
    Target().FlipBit(512);

    ExpectRefused(KK_STATUS_REGISTRY_CORRUPT, 8 * kMiB, 4 * kMiB);
}

TEST_F(RestoreToFreeSpaceTest, OfAnMbrDiskNoHeaderIsRead)
{
    SHOWS(KkRestoreToFreeSpace, KK_STATUS_SUCCESS, "on an MBR disk no header is read");

    AddTarget(kSmallMbr, {kTaken}, kSize);
    const std::vector<uint8_t> header = ImageBytes(512, 512);
    Target().WriteBytes(512, header);
    PutOnTarget(kFirstUsableField, kAll);

    EXPECT_EQ(Restore(40 * kMiB, kAll), 0);

    EXPECT_EQ(StepsLike("read drive 0 at 512+"), 0u);
    EXPECT_EQ(Added(kSmallMbr), (Place{40 * kMiB, kSize - 40 * kMiB}));
}

TEST_F(RestoreToFreeSpaceTest, ARegionThatReachesIntoAPartitionIsNotFree)
{
    SHOWS(KkRestoreToFreeSpace, KK_STATUS_INVALID_PARAMETER, "a partition of the disk lies in the way");

    const uint64_t end = kTaken.start + kTaken.length;
    for (const TableKind table : {TableKind::Gpt, TableKind::Mbr}) {
        AddTarget({table, 512}, {kTaken}, kSize);

        ExpectRefused(KK_STATUS_INVALID_PARAMETER, 24 * kMiB, 8 * kMiB + 512);
        ExpectRefused(KK_STATUS_INVALID_PARAMETER, kTaken.start, 4 * kMiB);
        ExpectRefused(KK_STATUS_INVALID_PARAMETER, end - kMiB, 5 * kMiB);
        ExpectRefused(KK_STATUS_INVALID_PARAMETER, 0, kAll);
        ExpectRefused(KK_STATUS_INVALID_PARAMETER, 29 * kMiB, 16 * kMiB, 1);
    }
}

TEST_F(RestoreToFreeSpaceTest, ARegionMayTouchItsNeighbours)
{
    SHOWS(KkRestoreToFreeSpace, KK_STATUS_SUCCESS, "the new partition may touch others at both ends");

    AddTarget(kSmallGpt, {kTaken, {20 * kMiB, 8 * kMiB}}, kSize);

    ASSERT_EQ(Restore(28 * kMiB, 4 * kMiB), 0);

    EXPECT_EQ(ReadSlots(Target(), kSmallGpt).at(2), (Place{28 * kMiB, 4 * kMiB}));
}

TEST_F(RestoreToFreeSpaceTest, KeptSizesNeedOnlyTheirOwnRoomFree)
{
    SHOWS(KkRestoreToFreeSpace, KK_STATUS_SUCCESS, "a kept size needs only its own room free");

    ASSERT_EQ(Restore(28 * kMiB, 30 * kMiB, 1), 0);

    EXPECT_EQ(Added(), (Place{28 * kMiB, kLength}));
}

TEST_F(RestoreToFreeSpaceTest, ADiskWithoutATableIsNotSupported)
{
    SHOWS(KkRestoreToFreeSpace, KK_STATUS_NOT_SUPPORTED,
          "the disk has neither an MBR nor a GPT; it is not opened for writing");

    AddTarget(kSize);

    ExpectRefused(KK_STATUS_NOT_SUPPORTED, 8 * kMiB, 16 * kMiB);

    EXPECT_EQ(StepsLike("for writing"), 0u);
}

TEST_F(RestoreToFreeSpaceTest, ADiskThatIsNotThereTellsWhy)
{
    SHOWS(KkRestoreToFreeSpace, 0xC0000034, "the status of a disk that does not open is passed on");

    BeginCall();

    EXPECT_EQ(api.restoreToFreeSpace(ImagePath().c_str(), 2, 7, 0, kAll, 0), machine::kObjectNameNotFound);
}

TEST_F(RestoreToFreeSpaceTest, ADiskThatDoesNotTellItsSizeHasNoRoom)
{
    SHOWS(KkRestoreToFreeSpace, KK_STATUS_BUFFER_TOO_SMALL, "a disk that does not tell its size has no room");

    Fail({.code = 0x700A0}, 0xC0000010);

    ExpectRefused(KK_STATUS_BUFFER_TOO_SMALL, 8 * kMiB, 16 * kMiB);
}

TEST_F(RestoreToFreeSpaceTest, ASectorSizeOfZeroCountsAs512)
{
    SHOWS(KkRestoreToFreeSpace, KK_STATUS_SUCCESS, "a reported sector size of 0 means 512");

    Target().behaviour.reportsZeroBytesPerSector = true;

    ASSERT_EQ(Restore(8 * kMiB, 4 * kMiB + 700), 0);

    EXPECT_EQ(Added(), (Place{8 * kMiB, 4 * kMiB + 512}));
}

TEST_F(RestoreToFreeSpaceTest, AFullTableTakesNoPartition)
{
    SHOWS(KkRestoreToFreeSpace, KK_STATUS_DISK_FULL, "the disk's table has no unused entry");

    AddTarget(kSmallMbr, {{32 * kMiB, kMiB}, {34 * kMiB, kMiB}, {36 * kMiB, kMiB}, {38 * kMiB, kMiB}}, kSize);

    ExpectRefused(KK_STATUS_DISK_FULL, 8 * kMiB, 16 * kMiB);
}

TEST_F(RestoreToFreeSpaceTest, AnImageWithAnMbrServesToo)
{
    SHOWS(KkRestoreToFreeSpace, KK_STATUS_SUCCESS, "an image with an MBR serves too");

    MakeImage(kSmallMbr, {{kTinySource, 512}, {kSource, kLength}}, 8 * kMiB);

    ASSERT_EQ(Restore(8 * kMiB, 16 * kMiB, 1), 0);

    EXPECT_EQ(Added(), (Place{8 * kMiB, kLength}));
    ExpectRestored(kSource, 8 * kMiB, kLength);
}

TEST_F(RestoreToFreeSpaceTest, AnImageWithoutWhatIsAskedForLeavesTheDiskAlone)
{
    SHOWS(KkRestoreToFreeSpace, KK_STATUS_INVALID_PARAMETER,
          "the image has no such partition, or none at all; the disk is not looked at");
    SHOWS(KkRestoreToFreeSpace, KK_STATUS_REGISTRY_CORRUPT, "the image's disk has no table");

    EXPECT_EQ(RestoreToFreeSpace(3, 8 * kMiB, 16 * kMiB), KK_STATUS_INVALID_PARAMETER);
    EXPECT_EQ(RestoreToFreeSpace(0, 8 * kMiB, 16 * kMiB), KK_STATUS_INVALID_PARAMETER);
    MakeImage(kSmallGpt, std::vector<Place>{}, 8 * kMiB);
    EXPECT_EQ(Restore(8 * kMiB, 16 * kMiB), KK_STATUS_INVALID_PARAMETER);
    MakeBlankImage(8 * kMiB);
    EXPECT_EQ(Restore(8 * kMiB, 16 * kMiB), KK_STATUS_REGISTRY_CORRUPT);

    EXPECT_EQ(StepsLike("drive"), 0u);
}

TEST_F(RestoreToFreeSpaceTest, TheImagesPathIsRequired)
{
    SHOWS(KkRestoreToFreeSpace, KK_STATUS_INVALID_PARAMETER, "the path is null; nothing is done");

    BeginCall();

    EXPECT_EQ(api.restoreToFreeSpace(nullptr, 2, 0, 8 * kMiB, 16 * kMiB, 0), KK_STATUS_INVALID_PARAMETER);

    EXPECT_THAT(machine.journal.Records(), IsEmpty());
}

}  // namespace
