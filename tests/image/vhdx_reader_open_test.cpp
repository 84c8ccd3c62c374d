#include <fstream>

#include "vhdx_reader_fixture.h"

namespace {

using machine::CallKind;
using vhdx::LittleEndian;
using vhdx::Region;

class VhdxReaderOpenTest : public VhdxReaderTest {
protected:
    void SaveBytes(const std::string& content) { std::ofstream(file, std::ios::binary) << content; }

    static Region Metadata() { return {vhdx::kMetadataRegion, vhdx::kMetadataOffset, vhdx::kMetadataBytes}; }
    static Region BlockTable() { return {vhdx::kBlockTableRegion, vhdx::kBlockTableOffset, 0x100000}; }
    static Region Log() { return {{1, 2, 3, {4}}, vhdx::kLogOffset, 0x100000}; }
};

TEST_F(VhdxReaderOpenTest, TellsWhatTheFileSays)
{
    MustOpen(VhdxBuilder(64 * kMiB + 512).BlockSize(8 << 20));
    EXPECT_EQ(reader->VirtualSize(), 64 * kMiB + 512);
    EXPECT_EQ(reader->BlockSize(), 8u << 20);
    EXPECT_EQ(reader->LogicalSectorSize(), 512u);

    MustOpen(VhdxBuilder(5 * kTiB).SectorSize(4096));
    EXPECT_EQ(reader->VirtualSize(), 5 * kTiB);
    EXPECT_EQ(reader->LogicalSectorSize(), 4096u);
}

TEST_F(VhdxReaderOpenTest, OpensTheFileForReadingAndClosesIt)
{
    MustOpen(VhdxBuilder(64 * kMiB));
    reader.reset();

    const auto opens = machine.journal.FindAll({CallKind::CreateFile});
    ASSERT_EQ(opens.size(), 1u);
    EXPECT_EQ(opens[0].access & 0x0001'0116, 0u) << "no access to write, append, set attributes or delete";
    EXPECT_EQ(machine.handles.OpenCount(), 0u);
}

TEST_F(VhdxReaderOpenTest, AFileThatIsNotThereIsTheOpensFailure)
{
    EXPECT_EQ(OpenFile(), Status(0xC0000034));
}

TEST_F(VhdxReaderOpenTest, EveryLetterOfTheIdentifierCounts)
{
    const std::string identifier = "vhdxfile";
    for (size_t i = 0; i < identifier.size(); ++i) {
        const auto wrong = static_cast<uint8_t>(identifier[i] ^ 0x20);
        EXPECT_EQ(Open(VhdxBuilder(64 * kMiB).FileBytes(i, {wrong})), kMalformed) << i;
    }
}

TEST_F(VhdxReaderOpenTest, OtherImagesAreRefusedAtTheIdentifier)
{
    for (const std::string format : {"vpc", "vpc -o subformat=fixed,force_size", "qcow2", "raw"}) {
        Shell("qemu-img create -q -f " + format + " " + file.string() + " 16M");
        machine.journal.Clear();

        EXPECT_EQ(OpenFile(), kMalformed) << format;
        EXPECT_EQ(Reads().size(), 1u) << format;
    }
}

TEST_F(VhdxReaderOpenTest, AFileWithoutAWholeIdentifierEndsTooEarly)
{
    SaveBytes("");
    EXPECT_EQ(OpenFile(), kEndOfFile);
    SaveBytes("vhdxfil");
    EXPECT_EQ(OpenFile(), kEndOfFile);
    SaveBytes("vhdxfile");
    EXPECT_EQ(OpenFile(), kMalformed) << "a region table that cannot be read is no usable one";
}

TEST_F(VhdxReaderOpenTest, LooksAtNoHeaderAndNoChecksum)
{
    const std::vector<uint8_t> noise(4096, 0xFF);

    EXPECT_EQ(Open(VhdxBuilder(64 * kMiB)
                       .FileBytes(vhdx::kHeaderOffsets[0], noise)
                       .FileBytes(vhdx::kHeaderOffsets[1], noise)
                       .FileBytes(vhdx::kRegionTableOffsets[0] + 4, {1, 2, 3, 4})
                       .FileBytes(vhdx::kRegionTableOffsets[0] + 12, {1, 2, 3, 4})),
              0);
}

TEST_F(VhdxReaderOpenTest, LooksAtTheSecondRegionTableOnlyWhenTheFirstDoesNotDo)
{
    MustOpen(VhdxBuilder(64 * kMiB));

    for (const machine::CallRecord& read : Reads()) {
        EXPECT_NE(read.offset, vhdx::kRegionTableOffsets[1]);
    }
}

TEST_F(VhdxReaderOpenTest, OpensThroughTheSecondRegionTableWhenTheFirstIsDamaged)
{
    const uint64_t first = vhdx::kRegionTableOffsets[0];
    for (uint64_t letter = 0; letter < 4; ++letter) {
        EXPECT_EQ(Open(VhdxBuilder(64 * kMiB).FileBytes(first + letter, {0x11})), 0) << letter;
    }
    EXPECT_EQ(Open(VhdxBuilder(64 * kMiB).FileBytes(first + 8, LittleEndian(2048, 4))), 0);
    EXPECT_EQ(Open(VhdxBuilder(64 * kMiB).FileBytes(first + 8, LittleEndian(0xFFFFFFFF, 4))), 0);
    EXPECT_EQ(Open(VhdxBuilder(64 * kMiB).FileBytes(first + 8, LittleEndian(0, 4))), 0);
    EXPECT_EQ(Open(VhdxBuilder(64 * kMiB).FileBytes(first, std::vector<uint8_t>(vhdx::kRegionTableBytes))), 0);
    EXPECT_EQ(Open(VhdxBuilder(64 * kMiB).Regions(0, {Metadata(), Log()})), 0);
    EXPECT_EQ(Open(VhdxBuilder(64 * kMiB).Regions(0, {BlockTable(), Log()})), 0);
}

TEST_F(VhdxReaderOpenTest, OpensThroughTheSecondRegionTableWhenTheFirstCannotBeRead)
{
    VhdxBuilder(64 * kMiB).Save(file);
    machine.faults.Fail({CallKind::ReadFile}, 2, 0xC000009C);

    EXPECT_EQ(OpenFile(), 0);
}

TEST_F(VhdxReaderOpenTest, WithoutAUsableRegionTableTheFileIsMalformed)
{
    EXPECT_EQ(Open(VhdxBuilder(64 * kMiB).Regions({})), kMalformed);
    EXPECT_EQ(Open(VhdxBuilder(64 * kMiB).Regions({Metadata(), Log()})), kMalformed);
    EXPECT_EQ(Open(VhdxBuilder(64 * kMiB).Regions({Log(), BlockTable()})), kMalformed);

    VhdxBuilder damaged(64 * kMiB);
    for (const uint64_t table : vhdx::kRegionTableOffsets) {
        damaged.FileBytes(table + 8, LittleEndian(2048, 4));
    }
    EXPECT_EQ(Open(damaged), kMalformed);
}

TEST_F(VhdxReaderOpenTest, AFailingReadOfBothRegionTablesIsNoFailureOfItsOwn)
{
    VhdxBuilder(64 * kMiB).Save(file);
    machine.faults.FailFrom({CallKind::ReadFile}, 2, 0xC000009C);

    EXPECT_EQ(OpenFile(), kMalformed);
}

TEST_F(VhdxReaderOpenTest, ARegionTableMayHaveAsManyEntriesAsItHolds)
{
    std::vector<Region> regions(2047, Log());
    regions[2045] = BlockTable();
    regions[2046] = Metadata();

    EXPECT_EQ(Open(VhdxBuilder(64 * kMiB).Regions(regions).Regions(1, {})), 0);
}

TEST_F(VhdxReaderOpenTest, EntriesBeyondTheCountAreNotThere)
{
    for (const uint8_t count : {uint8_t{0}, uint8_t{1}}) {
        VhdxBuilder builder(64 * kMiB);
        for (const uint64_t table : vhdx::kRegionTableOffsets) {
            builder.FileBytes(table + 8, {count});
        }
        EXPECT_EQ(Open(builder), kMalformed) << int{count};
    }
}

TEST_F(VhdxReaderOpenTest, TheLastOfSeveralEntriesOfAKindCounts)
{
    VhdxBuilder builder(64 * kMiB);
    builder.Data(0, Pattern(512, 1));
    const Region lost = {vhdx::kMetadataRegion, 40 * kGiB, 100};
    const Region lostTable = {vhdx::kBlockTableRegion, 41 * kGiB, 100};

    ASSERT_EQ(Open(builder.Regions({lost, lostTable, BlockTable(), Metadata()})), 0);
    ExpectBytes(0, Pattern(512, 1));
    EXPECT_EQ(Open(builder.Regions({Metadata(), BlockTable(), lost})), kEndOfFile);
    ASSERT_EQ(Open(builder.Regions({BlockTable(), Metadata(), lostTable})), 0);
    EXPECT_EQ(Read(0, 512), kEndOfFile);
}

TEST_F(VhdxReaderOpenTest, WhatTheFirstRegionTableToldIsKeptWhenTheSecondTellsTheRest)
{
    VhdxBuilder builder(64 * kMiB);
    builder.Data(0, Pattern(512, 1));

    ASSERT_EQ(Open(builder.Regions(0, {BlockTable()}).Regions(1, {Metadata()})), 0);
    ExpectBytes(0, Pattern(512, 1));
    ASSERT_EQ(Open(builder.Regions(0, {Metadata()}).Regions(1, {BlockTable()})), 0);
    ExpectBytes(0, Pattern(512, 1));
}

TEST_F(VhdxReaderOpenTest, TheSecondRegionTableOverrulesAnIncompleteFirst)
{
    VhdxBuilder builder(64 * kMiB);
    builder.Data(0, Pattern(512, 1)).Regions(0, {{vhdx::kBlockTableRegion, 41 * kGiB, 100}});

    ASSERT_EQ(Open(builder), 0);
    ExpectBytes(0, Pattern(512, 1));
}

TEST_F(VhdxReaderOpenTest, AnEntryOfARejectedRegionTableIsNotTaken)
{
    VhdxBuilder builder(64 * kMiB);
    builder.Regions(0, {BlockTable()}).Regions(1, {Metadata()});

    EXPECT_EQ(Open(builder.FileBytes(vhdx::kRegionTableOffsets[0], {'R'})), kMalformed);
}

TEST_F(VhdxReaderOpenTest, EveryLetterOfARegionTablesSignatureCounts)
{
    for (uint64_t letter = 0; letter < 4; ++letter) {
        const uint64_t at = vhdx::kRegionTableOffsets[0] + letter;
        EXPECT_EQ(Open(VhdxBuilder(64 * kMiB).Regions(1, {}).FileBytes(at, {0x11})), kMalformed) << letter;
    }
}

TEST_F(VhdxReaderOpenTest, ARegionTableThatTheFileCutsOffIsNone)
{
    VhdxBuilder(64 * kMiB).Regions(0, {}).Save(file);
    std::filesystem::resize_file(file, vhdx::kRegionTableOffsets[1] + vhdx::kRegionTableBytes - 1);

    EXPECT_EQ(OpenFile(), kMalformed);
}

TEST_F(VhdxReaderOpenTest, ARegionAtTheFilesBeginningIsNone)
{
    EXPECT_EQ(Open(VhdxBuilder(64 * kMiB).Regions({Metadata(), {vhdx::kBlockTableRegion, 0, 0x100000}})), kMalformed);
    EXPECT_EQ(Open(VhdxBuilder(64 * kMiB).Regions({BlockTable(), {vhdx::kMetadataRegion, 0, 0x100000}})), kMalformed);
}

TEST_F(VhdxReaderOpenTest, EveryByteOfARegionsIdentifierCounts)
{
    const uint64_t entries = vhdx::kRegionTableOffsets[0] + 16;
    for (uint64_t at = 0; at < 16; ++at) {
        for (const uint64_t entry : {entries, entries + 32}) {
            EXPECT_EQ(Open(VhdxBuilder(64 * kMiB).Regions(1, {}).FileBytes(entry + at, {0x5A})), kMalformed) << at;
        }
    }
}

}  // namespace
