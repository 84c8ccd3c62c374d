#include "vhdx_reader_fixture.h"

namespace {

using machine::CallKind;
using vhdx::kFullyPresent;
using vhdx::LittleEndian;

constexpr uint64_t kBlock = 2 << 20;

class VhdxReaderReadTest : public VhdxReaderTest {};

TEST_F(VhdxReaderReadTest, ReadsDataAndZerosAcrossBlocksInWhateverOrderTheyLie)
{
    MustOpen(VhdxBuilder(64 * kMiB)
                 .Data(3 * kBlock, Pattern(kBlock, 1))
                 .Data(kBlock - 700, Pattern(1500, 2))
                 .Data(64 * kMiB - 512, Pattern(512, 3)));

    std::vector<uint8_t> expected(64 * kMiB);
    std::ranges::copy(Pattern(kBlock, 1), expected.begin() + 3 * kBlock);
    std::ranges::copy(Pattern(1500, 2), expected.begin() + kBlock - 700);
    std::ranges::copy(Pattern(512, 3), expected.end() - 512);
    ExpectBytes(0, expected);
    ExpectBytes(kBlock - 1, {expected.begin() + kBlock - 1, expected.begin() + kBlock + 1});
    ExpectBytes(kBlock - 333, {expected.begin() + kBlock - 333, expected.begin() + 3 * kBlock + 77});
    ExpectBytes(4 * kBlock - 1, {expected.begin() + 4 * kBlock - 1, expected.begin() + 4 * kBlock});
}

TEST_F(VhdxReaderReadTest, NothingIsReadForNothing)
{
    MustOpen(VhdxBuilder(64 * kMiB).Data(0, Pattern(512, 1)));
    machine.journal.Clear();
    uint8_t byte = kDirt;

    EXPECT_EQ(reader->Read(0, &byte, 0), 0);
    EXPECT_EQ(reader->Read(UINT64_MAX, &byte, 0), 0);
    EXPECT_EQ(reader->Read(0, nullptr, 0), 0);

    EXPECT_EQ(byte, kDirt);
    EXPECT_TRUE(Reads().empty());
}

TEST_F(VhdxReaderReadTest, FillsNoByteMoreThanAskedFor)
{
    MustOpen(VhdxBuilder(64 * kMiB).Data(0, Pattern(512, 1)));
    std::vector<uint8_t> buffer(20, kDirt);

    EXPECT_EQ(reader->Read(0, buffer.data(), 10), 0);
    EXPECT_EQ(reader->Read(64 * kMiB, buffer.data() + 10, 5), 0);

    std::vector<uint8_t> expected = Pattern(10, 1);
    expected.resize(15, 0);
    expected.resize(20, kDirt);
    EXPECT_EQ(buffer, expected);
}

TEST_F(VhdxReaderReadTest, BeyondTheDisksEndAreZerosWithoutARead)
{
    MustOpen(VhdxBuilder(64 * kMiB).EveryBlockPresent());
    machine.journal.Clear();

    ExpectZeros(64 * kMiB, 1000);
    ExpectZeros(40 * kTiB, 1000);
    ExpectZeros(UINT64_MAX - 10, 1000);
    EXPECT_TRUE(Reads().empty());
}

TEST_F(VhdxReaderReadTest, WhatTheLastBlockHoldsBeyondTheDisksEndIsZero)
{
    VhdxBuilder builder(5 * kMiB + 512);
    builder.EveryBlockPresent();
    MustOpen(builder.FileBytes(builder.PlaceOf(2) + kMiB, Pattern(4096, 1)));

    std::vector<uint8_t> expected = Pattern(512, 1);
    expected.resize(kBlock);
    ExpectBytes(5 * kMiB, expected);
    ExpectZeros(5 * kMiB + 512, 3000);
    ExpectBytes(5 * kMiB + 500, {Pattern(512, 1)[500], Pattern(512, 1)[501]});
}

TEST_F(VhdxReaderReadTest, TheEndOfTheDiskIsReadWithoutWhatFollowsIt)
{
    VhdxBuilder(5 * kMiB + 512).Data(5 * kMiB, Pattern(512, 1)).Save(file);
    std::filesystem::resize_file(file, std::filesystem::file_size(file) - kMiB + 512);
    ASSERT_EQ(OpenFile(), 0);

    std::vector<uint8_t> expected = Pattern(512, 1);
    expected.resize(4096);
    ExpectBytes(5 * kMiB, expected);
}

TEST_F(VhdxReaderReadTest, BlocksInAnyStateButFullyPresentAreZeros)
{
    for (uint64_t state = 0; state < 8; ++state) {
        MustOpen(VhdxBuilder(64 * kMiB).Data(kBlock, Pattern(4096, 1)).State(1, state));

        ExpectBytes(kBlock, state == kFullyPresent ? Pattern(4096, 1) : std::vector<uint8_t>(4096));
    }
}

TEST_F(VhdxReaderReadTest, OnlyTheThreeLowestBitsAreTheState)
{
    VhdxBuilder builder(64 * kMiB);
    builder.Data(kBlock, Pattern(4096, 1));
    for (uint64_t bit = 3; bit < 20; ++bit) {
        MustOpen(builder.Entry(1, builder.PlaceOf(1) | kFullyPresent | uint64_t{1} << bit));

        ExpectBytes(kBlock, Pattern(4096, 1));
    }
    MustOpen(builder.Entry(1, builder.PlaceOf(1) | 0xFFFFE));
    ExpectBytes(kBlock, Pattern(4096, 1));
}

TEST_F(VhdxReaderReadTest, ABlockAtTheFilesBeginningIsZeros)
{
    for (const uint64_t entry : {uint64_t{6}, uint64_t{0x8000E}, uint64_t{0xFFFFE}}) {
        MustOpen(VhdxBuilder(64 * kMiB).Entry(0, entry));

        ExpectZeros(0, 4096);
    }
}

TEST_F(VhdxReaderReadTest, ABlockMayLieAnywhereElseInTheFile)
{
    MustOpen(VhdxBuilder(64 * kMiB)
                 .Entry(0, kMiB | kFullyPresent)
                 .Entry(1, 10 * kTiB | kFullyPresent)
                 .Entry(2, vhdx::kMetadataOffset | kFullyPresent)
                 .FileBytes(kMiB, Pattern(512, 1))
                 .FileBytes(10 * kTiB + kBlock - 512, Pattern(512, 2)));

    ExpectBytes(0, Pattern(512, 1));
    ExpectBytes(2 * kBlock - 512, Pattern(512, 2));
    ExpectBytes(2 * kBlock, {'m', 'e', 't', 'a', 'd', 'a', 't', 'a'});
}

TEST_F(VhdxReaderReadTest, LooksAtOneEntryForEachBlockThatIsTouched)
{
    VhdxBuilder builder(64 * kMiB);
    MustOpen(builder.Data(0, Pattern(512, 1)).Data(2 * kBlock, Pattern(512, 2)));
    machine.journal.Clear();

    EXPECT_EQ(Read(kBlock - 100, kBlock + 200), 0);

    const auto reads = Reads();
    ASSERT_EQ(reads.size(), 5u);
    const std::vector<std::pair<uint64_t, uint64_t>> expected = {{builder.PlaceOfEntry(0), 8},
                                                                 {builder.PlaceOf(0) + kBlock - 100, 100},
                                                                 {builder.PlaceOfEntry(1), 8},
                                                                 {builder.PlaceOfEntry(2), 8},
                                                                 {builder.PlaceOf(2), 100}};
    for (size_t i = 0; i < reads.size(); ++i) {
        EXPECT_EQ(reads[i].offset, expected[i].first) << i;
        EXPECT_EQ(reads[i].length, expected[i].second) << i;
    }
    machine.journal.Clear();
    EXPECT_EQ(Read(kBlock - 100, 100), 0);
    EXPECT_EQ(Reads().size(), 2u) << "nothing is remembered, and the next block is not touched";
}

TEST_F(VhdxReaderReadTest, StepsOverTheEntriesOfSectorBitmaps)
{
    VhdxBuilder builder(13 * kGiB);
    builder.BitmapEntries(kMiB | kFullyPresent).FileBytes(kMiB, Pattern(kMiB, 99));
    for (uint64_t chunk = 1; chunk <= 3; ++chunk) {
        builder.Data(chunk * 4 * kGiB - 700, Pattern(1400, static_cast<uint8_t>(chunk)));
    }
    MustOpen(builder);

    for (uint64_t chunk = 1; chunk <= 3; ++chunk) {
        ExpectBytes(chunk * 4 * kGiB - 700, Pattern(1400, static_cast<uint8_t>(chunk)));
        ExpectZeros(chunk * 4 * kGiB + kBlock, kBlock);
        ExpectZeros(chunk * 4 * kGiB - 2 * kBlock, kBlock);
    }
}

TEST_F(VhdxReaderReadTest, AChunkOfLargeSectorsIsLonger)
{
    VhdxBuilder builder(70 * kGiB);
    builder.SectorSize(4096).BlockSize(1 << 20).BitmapEntries(kMiB | kFullyPresent);
    MustOpen(builder.FileBytes(kMiB, Pattern(kMiB, 99))
                 .Data(4 * kGiB - 700, Pattern(1400, 1))
                 .Data(32 * kGiB - 700, Pattern(1400, 2))
                 .Data(64 * kGiB - 700, Pattern(1400, 3)));

    ExpectBytes(4 * kGiB - 700, Pattern(1400, 1));
    ExpectBytes(32 * kGiB - 700, Pattern(1400, 2));
    ExpectBytes(64 * kGiB - 700, Pattern(1400, 3));
    ExpectZeros(32 * kGiB + kMiB, kMiB);
}

TEST_F(VhdxReaderReadTest, AChunkHasAtLeastOneBlock)
{
    VhdxBuilder builder(16 * kMiB);
    builder.SectorSize(0).BitmapEntries(kMiB | kFullyPresent).FileBytes(kMiB, Pattern(kMiB, 99));
    MustOpen(builder.Data(0, Pattern(512, 1)).Data(kBlock, Pattern(512, 2)).Data(7 * kBlock, Pattern(512, 3)));

    EXPECT_EQ(builder.PlaceOfEntry(7), vhdx::kBlockTableOffset + 14 * 8);
    ExpectBytes(0, Pattern(512, 1));
    ExpectBytes(kBlock, Pattern(512, 2));
    ExpectBytes(7 * kBlock, Pattern(512, 3));
    ExpectZeros(2 * kBlock, kBlock);
}

TEST_F(VhdxReaderReadTest, BlocksMayHaveAnySize)
{
    for (const uint32_t blockSize : {1000u, 4096u, 0x300000u, 0x10000001u}) {
        SCOPED_TRACE(blockSize);
        MustOpen(VhdxBuilder(kGiB).BlockSize(blockSize).Data(3 * uint64_t{blockSize} - 700, Pattern(5000, 1)));

        std::vector<uint8_t> expected(300);
        std::ranges::copy(Pattern(5000, 1), std::back_inserter(expected));
        expected.resize(expected.size() + 300);
        ExpectBytes(3 * uint64_t{blockSize} - 1000, expected);
    }
}

TEST_F(VhdxReaderReadTest, TheLargestBlockIsAlmostFourGigabytes)
{
    const uint64_t blockSize = 0xFFFFFFFF;
    MustOpen(VhdxBuilder(3 * blockSize)
                 .SectorSize(512)
                 .BlockSize(0xFFFFFFFF)
                 .Data(2 * blockSize - 100, Pattern(200, 1))
                 .Data(blockSize - 100, Pattern(200, 2)));

    ExpectBytes(2 * blockSize - 100, Pattern(200, 1));
    ExpectBytes(blockSize - 100, Pattern(200, 2));
    ExpectZeros(2 * blockSize - 1000, 900);
}

TEST_F(VhdxReaderReadTest, ReadsADiskOfManyTerabytes)
{
    MustOpen(VhdxBuilder(64 * kTiB)
                 .BlockSize(1 << 20)
                 .Data(64 * kTiB - 1000, Pattern(1000, 1))
                 .Data(17 * kTiB + 5, Pattern(1000, 2)));

    std::vector<uint8_t> expected = Pattern(1000, 1);
    expected.resize(3000);
    ExpectBytes(64 * kTiB - 1000, expected);
    ExpectBytes(17 * kTiB + 5, Pattern(1000, 2));
    ExpectZeros(33 * kTiB, kMiB);
}

TEST_F(VhdxReaderReadTest, ABlockBeyondTheFilesEndEndsTooEarly)
{
    VhdxBuilder builder(64 * kMiB);
    builder.Data(0, Pattern(512, 1)).Entry(1, 40 * kTiB | kFullyPresent);
    MustOpen(builder);

    EXPECT_EQ(Read(kBlock, 1), kEndOfFile);
    EXPECT_EQ(Read(kBlock - 1, 2), kEndOfFile);
    ExpectBytes(0, Pattern(512, 1));
}

TEST_F(VhdxReaderReadTest, ABlockThatTheFileCutsOffEndsTooEarly)
{
    VhdxBuilder(64 * kMiB).Data(0, Pattern(kBlock, 1)).Save(file);
    std::filesystem::resize_file(file, std::filesystem::file_size(file) - 1);
    ASSERT_EQ(OpenFile(), 0);

    EXPECT_EQ(Read(kBlock - 2, 2), kEndOfFile);
    ExpectBytes(kBlock - 2, {Pattern(kBlock, 1)[kBlock - 2]});
}

TEST_F(VhdxReaderReadTest, APlaceThatNoFileReachesEndsTooEarly)
{
    const uint64_t places[] = {0xFFFF'FFFF'FFF0'0000, 0x8000'0000'0000'0000, 0x7FFF'FFFF'FFF0'0000};
    for (const uint64_t place : places) {
        MustOpen(VhdxBuilder(64 * kMiB).Entry(0, place | kFullyPresent));

        EXPECT_EQ(Read(0, 512), kEndOfFile) << place;
        EXPECT_EQ(Read(kMiB - 1, 2), kEndOfFile) << place;
        EXPECT_EQ(Read(kMiB + 512, 512), kEndOfFile) << "the sum must not wrap to " << place + kMiB + 512;
    }
}

TEST_F(VhdxReaderReadTest, ABlockTableBeyondTheFileEndsTooEarly)
{
    VhdxBuilder builder(64 * kMiB);
    const vhdx::Region metadata = builder.UsualRegions()[0];
    for (const uint64_t offset : {40 * kTiB, uint64_t{INT64_MAX} - 7, uint64_t{1} << 63, UINT64_MAX - 7, UINT64_MAX}) {
        MustOpen(builder.Regions({metadata, {vhdx::kBlockTableRegion, offset, 0x100000}}));

        EXPECT_EQ(Read(0, 512), kEndOfFile) << offset;
        EXPECT_EQ(Read(kBlock, 512), kEndOfFile) << "the sum must not wrap to " << offset + 8;
        EXPECT_EQ(Read(3 * kBlock, 512), kEndOfFile) << "the sum must not wrap to " << offset + 24;
    }
}

TEST_F(VhdxReaderReadTest, ABlockTableThatTheFileCutsOffEndsTooEarly)
{
    VhdxBuilder(64 * kMiB).Save(file);
    std::filesystem::resize_file(file, vhdx::kBlockTableOffset + 15);
    ASSERT_EQ(OpenFile(), 0);

    ExpectZeros(0, kBlock);
    EXPECT_EQ(Read(kBlock, 1), kEndOfFile);
    EXPECT_EQ(Read(0, kBlock + 1), kEndOfFile);
}

TEST_F(VhdxReaderReadTest, TheLengthOfTheBlockTableIsNotLookedAt)
{
    VhdxBuilder builder(64 * kMiB);
    std::vector<vhdx::Region> regions = builder.UsualRegions();
    regions[1].length = 0;
    MustOpen(builder.Regions(regions).Data(32 * kMiB, Pattern(512, 1)));

    ExpectBytes(32 * kMiB, Pattern(512, 1));
}

TEST_F(VhdxReaderReadTest, IndicesThatNoTableHasEndTooEarly)
{
    MustOpen(VhdxBuilder(64 * kMiB)
                 .Item({vhdx::kVirtualDiskSize, LittleEndian(UINT64_MAX, 8)})
                 .Item({vhdx::kFileParameters, LittleEndian(1, 8)}));
    // The sum of block and chunk, the product with an entry's 8 bytes and the sum with the table's place: none wraps.
    for (const uint64_t offset : {UINT64_MAX - 1, UINT64_MAX - (UINT64_MAX >> 32), uint64_t{1} << 61,
                                  (uint64_t{1} << 61) - (uint64_t{1} << 29), uint64_t{1} << 62}) {
        EXPECT_EQ(Read(offset, 1), kEndOfFile) << offset;
    }
    ExpectZeros(UINT64_MAX, 1);
}

TEST_F(VhdxReaderReadTest, IndicesThatWouldWrapDoNotReachTheTable)
{
    // A block is a byte and a chunk a block, so an index is twice the number of its block.
    VhdxBuilder builder(64 * kMiB);
    builder.Item({vhdx::kVirtualDiskSize, LittleEndian(UINT64_MAX, 8)})
        .Item({vhdx::kFileParameters, LittleEndian(1, 8)})
        .Item({vhdx::kLogicalSectorSize, LittleEndian(0, 4)})
        .Entry(0, kMiB | kFullyPresent);
    MustOpen(builder);

    EXPECT_EQ(Read(uint64_t{1} << 63, 1), kEndOfFile) << "twice the number is 2^64";
    EXPECT_EQ(Read(uint64_t{1} << 60, 1), kEndOfFile) << "8 times the index is 2^64";
}

TEST_F(VhdxReaderReadTest, AFailingReadOfTheTableOrOfDataIsTheResult)
{
    MustOpen(VhdxBuilder(64 * kMiB).EveryBlockPresent());
    for (const uint64_t nth : {1u, 2u, 3u, 4u}) {
        machine.faults.Clear();
        machine.faults.Fail({CallKind::ReadFile}, nth, 0xC000009C + static_cast<uint32_t>(nth));

        EXPECT_EQ(Read(kBlock - 1, 2), Status(0xC000009C + static_cast<uint32_t>(nth)));
    }
    machine.faults.Clear();
    EXPECT_EQ(Read(kBlock - 1, 2), 0);
}

TEST_F(VhdxReaderReadTest, TakesNoMemoryAndChangesNoByteOfTheFile)
{
    MustOpen(VhdxBuilder(64 * kMiB).Data(0, Pattern(kBlock, 1)));
    const std::string before = ReadFile(file);
    const uint64_t allocations = machine.heap.TotalAllocations();

    EXPECT_EQ(Read(0, 3 * kBlock), 0);

    EXPECT_EQ(machine.heap.TotalAllocations(), allocations);
    EXPECT_EQ(machine.journal.Count({CallKind::WriteFile}), 0u);
    reader.reset();
    EXPECT_TRUE(ReadFile(file) == before);
}

}  // namespace
