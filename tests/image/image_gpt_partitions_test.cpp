#include "image_partitions_fixture.h"

namespace {

using machine::CallKind;
using machine::GptEntryRecord;
using machine::GptHeaderRecord;

constexpr uint64_t kHeader = 512;
constexpr uint64_t kEntries = 1024;

class ImageGptPartitionsTest : public ImagePartitionsTest {
protected:
    void WriteTable(const machine::GptTable& table, uint32_t sectorSize = 512)
    {
        machine::WriteGptTable(disk, sectorSize, table);
    }
    static machine::GptTable TwoPartitions()
    {
        return {
            .partitions = {
                {.start = kMiB, .length = 8 * kMiB, .name = u"First"},
                {.start = 16 * kMiB, .length = kMiB, .type = machine::kEfiSystemType, .name = u"Second", .slot = 6}}};
    }
    /// A header and nothing else; the entry array is up to the test.
    void WriteHeader(uint32_t entryCount, uint32_t entryBytes, uint64_t entriesLba = 2)
    {
        Put(kHeader, {'E', 'F', 'I', ' ', 'P', 'A', 'R', 'T'});
        PutNumber(kHeader + offsetof(GptHeaderRecord, entryCount), entryCount, 4);
        PutNumber(kHeader + offsetof(GptHeaderRecord, entryBytes), entryBytes, 4);
        PutNumber(kHeader + offsetof(GptHeaderRecord, entriesLba), entriesLba, 8);
    }
    void WriteEntry(uint64_t offset, uint64_t firstLba, uint64_t lastLba)
    {
        Put(offset, Pattern(32, 1));
        PutNumber(offset + offsetof(GptEntryRecord, firstLba), firstLba, 8);
        PutNumber(offset + offsetof(GptEntryRecord, lastLba), lastLba, 8);
    }
};

TEST_F(ImageGptPartitionsTest, TellsEveryFieldOfAPartition)
{
    WriteTable(TwoPartitions());
    MustOpenDisk();

    ASSERT_EQ(ReadGpt(), 0);
    EXPECT_EQ(diskGuid, machine::kSampleDiskId);
    ASSERT_EQ(partitions->Count(), 2u);
    const kk::ImagePartition& first = (*partitions)[0];
    EXPECT_EQ(first.number, 1u);
    EXPECT_EQ(first.typeGuid, machine::kBasicDataType);
    EXPECT_EQ(first.idGuid, machine::MadeUpPartitionId(0));
    EXPECT_EQ(first.offset, kMiB);
    EXPECT_EQ(first.length, 8 * kMiB);
    EXPECT_EQ(NameOf(first), u"First");
    const kk::ImagePartition& second = (*partitions)[1];
    EXPECT_EQ(second.number, 7u);
    EXPECT_EQ(second.typeGuid, machine::kEfiSystemType);
    EXPECT_EQ(second.idGuid, machine::MadeUpPartitionId(6));
    EXPECT_EQ(second.offset, 16 * kMiB);
    EXPECT_EQ(second.length, kMiB);
    EXPECT_EQ(NameOf(second), u"Second");
}

TEST_F(ImageGptPartitionsTest, CountsInSectorsOfTheImage)
{
    for (const uint32_t sectorSize : {4096u, 2048u, 1024u}) {
        disk = machine::MemoryStorage(kDiskSize);
        WriteTable(TwoPartitions(), sectorSize);
        MustOpenDisk(sectorSize);

        ASSERT_EQ(ReadGpt(), 0);
        ASSERT_EQ(partitions->Count(), 2u);
        EXPECT_EQ((*partitions)[1].offset, 16 * kMiB);
        EXPECT_EQ((*partitions)[1].length, kMiB);
    }
}

TEST_F(ImageGptPartitionsTest, EveryLetterOfTheSignatureCounts)
{
    for (uint64_t i = 0; i < 8; ++i) {
        WriteTable(TwoPartitions());
        Put(kHeader + i, {'e'});
        MustOpenDisk();

        EXPECT_EQ(ReadGpt(), kMalformed) << i;
        EXPECT_EQ(partitions->Count(), 0u);
    }
}

TEST_F(ImageGptPartitionsTest, LooksAtNothingElseThatAHeaderSays)
{
    WriteTable(TwoPartitions());
    Put(kHeader + 8, Pattern(48, 1));  // revision, length, checksum, places of both headers, usable sectors
    Put(kHeader + offsetof(GptHeaderRecord, entriesCrc32), Pattern(4, 2));
    MustOpenDisk();

    EXPECT_EQ(ReadGpt(), 0);
    EXPECT_EQ(partitions->Count(), 2u);
}

TEST_F(ImageGptPartitionsTest, DoesNotLookAtTheBackup)
{
    WriteTable(TwoPartitions());
    Put(kHeader, std::vector<uint8_t>(512));
    MustOpenDisk();

    EXPECT_EQ(ReadGpt(), kMalformed);
}

TEST_F(ImageGptPartitionsTest, ATableOfUnusualNumbersHasNoPartitionsButItsGuid)
{
    for (const auto& [count, bytes] : std::vector<std::pair<uint32_t, uint32_t>>{
             {0, 128}, {4097, 128}, {0xFFFFFFFF, 128}, {128, 127}, {128, 0}, {0, 0}, {0xFFFFFFFF, 0xFFFFFFFF}}) {
        WriteTable(TwoPartitions());
        WriteHeader(count, bytes);
        MustOpenDisk();
        diskGuid = {};

        EXPECT_EQ(ReadGpt(), 0) << count << " of " << bytes;
        EXPECT_EQ(partitions->Count(), 0u);
        EXPECT_EQ(diskGuid, machine::kSampleDiskId);
    }
}

TEST_F(ImageGptPartitionsTest, ATableMayHaveOneEntryOrAnyNumberUpTo4096)
{
    WriteHeader(1, 128);
    WriteEntry(kEntries, 2048, 4095);
    WriteEntry(kEntries + 128, 4096, 8191);
    MustOpenDisk();
    ASSERT_EQ(ReadGpt(), 0);
    EXPECT_EQ(partitions->Count(), 1u);

    WriteHeader(4096, 128);
    WriteEntry(kEntries + 4095 * 128, 8192, 8192);
    WriteEntry(kEntries + 4096 * 128, 9000, 9000);
    MustOpenDisk();
    ASSERT_EQ(ReadGpt(), 0);
    ASSERT_EQ(partitions->Count(), 3u);
    EXPECT_EQ((*partitions)[2].number, 4096u);
    EXPECT_EQ((*partitions)[2].length, 512u);
}

TEST_F(ImageGptPartitionsTest, EveryEntryMayBeUsed)
{
    WriteHeader(4096, 128);
    for (uint64_t i = 0; i < 4096; ++i) {
        WriteEntry(kEntries + i * 128, 10000 + i, 10000 + i);
    }
    MustOpenDisk();

    ASSERT_EQ(ReadGpt(), 0);
    ASSERT_EQ(partitions->Count(), 4096u);
    for (uint32_t i = 0; i < 4096; ++i) {
        ASSERT_EQ((*partitions)[i].number, i + 1);
        ASSERT_EQ((*partitions)[i].offset, (10000 + i) * 512u);
    }
}

TEST_F(ImageGptPartitionsTest, EntriesMayBeLongerThanUsual)
{
    for (const uint32_t entryBytes : {129u, 200u, 256u, 1000u, 4096u}) {
        disk = machine::MemoryStorage(kDiskSize);
        WriteHeader(5, entryBytes);
        WriteEntry(kEntries, 2048, 4095);
        WriteEntry(kEntries + 4 * entryBytes, 4096, 4100);
        WriteEntry(kEntries + 5 * entryBytes, 5000, 5001);
        MustOpenDisk();

        ASSERT_EQ(ReadGpt(), 0) << entryBytes;
        ASSERT_EQ(partitions->Count(), 2u) << entryBytes;
        EXPECT_EQ((*partitions)[1].number, 5u);
        EXPECT_EQ((*partitions)[1].offset, 4096 * 512u);
    }
}

TEST_F(ImageGptPartitionsTest, TheEntriesMayLieAnywhereOnTheDisk)
{
    WriteHeader(4, 128, 100'000);
    WriteEntry(100'000 * 512, 2048, 4095);
    MustOpenDisk();

    ASSERT_EQ(ReadGpt(), 0);
    EXPECT_EQ(partitions->Count(), 1u);
}

TEST_F(ImageGptPartitionsTest, EntriesBeyondTheDiskAreUnused)
{
    const uint64_t sectors = kDiskSize / 512;
    for (const uint64_t lba : {sectors, uint64_t{1} << 40, UINT64_MAX}) {
        WriteHeader(128, 128, lba);
        MustOpenDisk();

        EXPECT_EQ(ReadGpt(), 0) << lba;
        EXPECT_EQ(partitions->Count(), 0u);
    }
}

TEST_F(ImageGptPartitionsTest, ThePlaceOfTheEntriesDoesNotWrap)
{
    WriteEntry(kEntries, 2048, 4095);
    for (const uint64_t lba : {(uint64_t{1} << 55) + 2, (uint64_t{1} << 63) + 2}) {
        WriteHeader(128, 128, lba);
        MustOpenDisk();

        EXPECT_EQ(ReadGpt(), 0) << lba;
        EXPECT_EQ(partitions->Count(), 0u) << "512 times " << lba << " is 1024 in 64 bits";
    }
}

TEST_F(ImageGptPartitionsTest, EntriesThatTheDisksEndCutsOffReadAsZerosThere)
{
    WriteHeader(8, 128, kDiskSize / 512 - 1);
    for (uint64_t i = 0; i < 4; ++i) {
        WriteEntry(kDiskSize - 512 + i * 128, 2048 + i, 4095);
    }
    MustOpenDisk();
    ASSERT_EQ(ReadGpt(), 0);
    EXPECT_EQ(partitions->Count(), 4u);

    WriteHeader(8, 300, kDiskSize / 512 - 1);
    disk.Write(kDiskSize - 512, std::vector<uint8_t>(512));
    WriteEntry(kDiskSize - 512, 2048, 4095);
    WriteEntry(kDiskSize - 512 + 300, 4096, 5000);
    MustOpenDisk();
    ASSERT_EQ(ReadGpt(), 0);
    ASSERT_EQ(partitions->Count(), 2u);
    EXPECT_EQ((*partitions)[1].length, 905 * 512u);
}

TEST_F(ImageGptPartitionsTest, AHugeTableOnASmallDiskTakesNoMemory)
{
    WriteHeader(4095, 0x100000);
    WriteEntry(kEntries, 2048, 4095);
    WriteEntry(kEntries + 5 * kMiB, 4096, 8191);
    MustOpenDisk();
    machine.heap.ResetCounters();

    EXPECT_EQ(ReadGpt(), 0);
    ASSERT_EQ(partitions->Count(), 2u);
    EXPECT_EQ((*partitions)[1].number, 6u);
    EXPECT_LT(machine.heap.PeakBytes(), 2 * kDiskSize);
}

TEST_F(ImageGptPartitionsTest, AnArrayOf4GigabytesOrMoreDoesNotFitIntoMemory)
{
    for (const auto& [count, bytes] : std::vector<std::pair<uint32_t, uint32_t>>{
             {4096, 0x100000}, {4096, 0xFFFFFFFF}, {2, 0x80000000}, {3, 0x80000000}}) {
        WriteHeader(count, bytes);
        WriteEntry(kEntries, 2048, 4095);
        MustOpenDisk();

        EXPECT_EQ(ReadGpt(), kOutOfMemory) << count << " of " << bytes;
    }
    WriteHeader(1, 0xFFFFFFFF);
    MustOpenDisk();
    EXPECT_NE(ReadGpt(), kMalformed);
}

TEST_F(ImageGptPartitionsTest, AnEntryIsUsedWhenAnyByteOfItsTypeIsSet)
{
    for (uint64_t at = 0; at < 16; ++at) {
        disk = machine::MemoryStorage(kDiskSize);
        WriteHeader(4, 128);
        Put(kEntries + 128 + at, {0x80});
        MustOpenDisk();

        ASSERT_EQ(ReadGpt(), 0);
        ASSERT_EQ(partitions->Count(), 1u) << at;
        EXPECT_EQ((*partitions)[0].number, 2u);
    }
}

TEST_F(ImageGptPartitionsTest, AnEntryWithoutATypeIsUnusedWhateverElseItHolds)
{
    WriteHeader(4, 128);
    Put(kEntries + 16, Pattern(112, 1));
    MustOpenDisk();

    EXPECT_EQ(ReadGpt(), 0);
    EXPECT_EQ(partitions->Count(), 0u);
}

TEST_F(ImageGptPartitionsTest, NumbersThatMakeNoSenseAreReportedAsTheProductsTheyAre)
{
    WriteHeader(4, 128);
    WriteEntry(kEntries, 4096, 2048);
    WriteEntry(kEntries + 128, 4096, 4095);
    WriteEntry(kEntries + 256, UINT64_MAX, UINT64_MAX);
    WriteEntry(kEntries + 384, 0, UINT64_MAX);
    MustOpenDisk();

    ASSERT_EQ(ReadGpt(), 0);
    ASSERT_EQ(partitions->Count(), 4u);
    EXPECT_EQ((*partitions)[0].offset, 4096 * 512u);
    EXPECT_EQ((*partitions)[0].length, uint64_t{0} - 2047 * 512);
    EXPECT_EQ((*partitions)[1].length, 0u);
    EXPECT_EQ((*partitions)[2].offset, uint64_t{0} - 512);
    EXPECT_EQ((*partitions)[2].length, 512u);
    EXPECT_EQ((*partitions)[3].offset, 0u);
    EXPECT_EQ((*partitions)[3].length, 0u) << "2^64 sectors";
}

TEST_F(ImageGptPartitionsTest, ANameMayFillItsField)
{
    WriteTable({.partitions = {{.start = kMiB, .length = kMiB, .name = u"123456789012345678901234567890123456"}}});
    PutNumber(kEntries + offsetof(GptEntryRecord, name) + 10, 0xD800, 2);
    MustOpenDisk();

    ASSERT_EQ(ReadGpt(), 0);
    std::u16string expected = u"123456789012345678901234567890123456";
    expected[5] = 0xD800;
    EXPECT_EQ(std::u16string((*partitions)[0].name, 36), expected);
}

TEST_F(ImageGptPartitionsTest, WhatFollowsTheEndOfANameIsKept)
{
    WriteTable({.partitions = {{.start = kMiB, .length = kMiB, .name = u"ab"}}});
    PutNumber(kEntries + offsetof(GptEntryRecord, name) + 70, 0x1234, 2);
    MustOpenDisk();

    ASSERT_EQ(ReadGpt(), 0);
    EXPECT_EQ((*partitions)[0].name[2], u'\0');
    EXPECT_EQ((*partitions)[0].name[35], 0x1234);
}

TEST_F(ImageGptPartitionsTest, ASectorMustHoldAHeader)
{
    for (const uint32_t sectorSize : {0u, 1u, 8u, 91u, 92u, 93u}) {
        disk = machine::MemoryStorage(kDiskSize);
        Put(sectorSize, {'E', 'F', 'I', ' ', 'P', 'A', 'R', 'T'});
        PutNumber(uint64_t{sectorSize} + offsetof(GptHeaderRecord, entryCount), 4, 4);
        PutNumber(uint64_t{sectorSize} + offsetof(GptHeaderRecord, entryBytes), 128, 4);
        PutNumber(uint64_t{sectorSize} + offsetof(GptHeaderRecord, entriesLba), 4, 8);
        WriteEntry(4 * uint64_t{sectorSize} + 128, 10, 19);
        MustOpenDisk(sectorSize);

        if (sectorSize < 92) {
            EXPECT_EQ(ReadGpt(), kMalformed) << sectorSize;
            continue;
        }
        ASSERT_EQ(ReadGpt(), 0) << sectorSize;
        ASSERT_EQ(partitions->Count(), 1u);
        EXPECT_EQ((*partitions)[0].offset, 10 * sectorSize);
        EXPECT_EQ((*partitions)[0].length, 10 * sectorSize);
    }
}

TEST_F(ImageGptPartitionsTest, ASectorLargerThanTheDiskHoldsNoHeader)
{
    WriteTable(TwoPartitions());
    for (const uint32_t sectorSize : {static_cast<uint32_t>(kDiskSize), 0xFFFFFFFFu}) {
        MustOpenDisk(sectorSize);
        machine.heap.ResetCounters();

        EXPECT_EQ(ReadGpt(), kMalformed);
        EXPECT_LT(machine.heap.PeakBytes(), 2 * kDiskSize);
    }
}

TEST_F(ImageGptPartitionsTest, ReadsOneSectorAndOneArray)
{
    WriteTable(TwoPartitions());
    MustOpenDisk();
    machine.journal.Clear();

    EXPECT_EQ(ReadGpt(), 0);
    const auto reads = Reads();
    ASSERT_EQ(reads.size(), 4u) << "each with its look at the block table";
    EXPECT_EQ(reads[1].length, 512u);
    EXPECT_EQ(reads[3].length, 128 * 128u);
}

TEST_F(ImageGptPartitionsTest, AFailingReadIsTheResult)
{
    WriteTable(TwoPartitions());
    MustOpenDisk();
    for (uint32_t nth = 1; nth <= 4; ++nth) {
        machine.faults.Clear();
        machine.faults.Fail({CallKind::ReadFile}, nth, 0xC0000010 + nth);

        EXPECT_EQ(ReadGpt(), Status(0xC0000010 + nth));
        EXPECT_EQ(partitions->Count(), 0u);
    }
}

TEST_F(ImageGptPartitionsTest, EveryFailingAllocationIsTheSame)
{
    WriteHeader(20, 128);
    for (uint64_t i = 0; i < 20; ++i) {
        WriteEntry(kEntries + i * 128, 10000 + i, 10000 + i);
    }
    MustOpenDisk();
    for (uint64_t nth = 1; nth <= 5; ++nth) {  // sector, array, and lists of 8, 16 and 32
        machine.faults.Clear();
        machine.faults.Fail({CallKind::Allocate}, nth, 0);

        EXPECT_EQ(ReadGpt(), kOutOfMemory) << nth;
    }
    machine.faults.Clear();
    EXPECT_EQ(ReadGpt(), 0);
    EXPECT_EQ(partitions->Count(), 20u);
}

}  // namespace
