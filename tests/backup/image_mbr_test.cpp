#include <fstream>

#include "image_table_fixture.h"
#include "support/shell.h"
#include "support/table_judges.h"

namespace {

using Entries = std::vector<kk::MbrImageEntry>;

class ImageMbrTest : public ImageTableTest {
protected:
    KK_STATUS Write(uint32_t sectorSize, const Entries& entries)
    {
        return kk::WriteImageMbr(*target, sectorSize, entries.data(), entries.size());
    }

    /// A sector as it is meant to be, made of the 16-byte records at its place.
    static std::vector<uint8_t> Sector(uint32_t sectorSize, const std::vector<std::vector<uint8_t>>& records)
    {
        std::vector<uint8_t> sector(std::max<size_t>(sectorSize, 512));
        for (size_t i = 0; i < records.size(); ++i) {
            EXPECT_EQ(records[i].size(), 16u);
            std::copy(records[i].begin(), records[i].end(), sector.begin() + 446 + static_cast<ptrdiff_t>(16 * i));
        }
        sector[510] = 0x55;
        sector[511] = 0xAA;
        sector.resize(sectorSize);
        return sector;
    }
};

TEST_F(ImageMbrTest, EveryByteOfTheSectorIsGiven)
{
    UseMemory(kMiB);

    EXPECT_EQ(Write(512, {{kMiB, 2 * kMiB, 0x07, 0}, {0x1234'5600, 0x200, 0x0C, 1}}), 0);
    EXPECT_EQ(Bytes(0, 512),
              Sector(512, {{0x00, 0xFE, 0xFF, 0xFF, 0x07, 0xFE, 0xFF, 0xFF, 0, 8, 0, 0, 0, 0x10, 0, 0},
                           {0x80, 0xFE, 0xFF, 0xFF, 0x0C, 0xFE, 0xFF, 0xFF, 0x2B, 0x1A, 0x09, 0, 1, 0, 0, 0}}));
    EXPECT_EQ(Bytes(512, 1), std::vector<uint8_t>{0xEE});
}

TEST_F(ImageMbrTest, LargerSectorsAreZeroBehindTheSignature)
{
    for (const uint32_t sectorSize : {520u, 4096u}) {
        UseMemory(kMiB);

        EXPECT_EQ(Write(sectorSize, {{10ull * sectorSize, 20ull * sectorSize, 0x83, 0}}), 0);
        EXPECT_EQ(Bytes(0, sectorSize),
                  Sector(sectorSize, {{0x00, 0xFE, 0xFF, 0xFF, 0x83, 0xFE, 0xFF, 0xFF, 10, 0, 0, 0, 20, 0, 0, 0}}));
        EXPECT_EQ(Bytes(sectorSize, 1), std::vector<uint8_t>{0xEE});
    }
}

TEST_F(ImageMbrTest, SectorsThatCannotHoldTheTableAreWrittenAsFarAsTheyGo)
{
    for (const uint32_t sectorSize : {1u, 4u, 448u, 511u}) {
        UseMemory(kMiB);
        machine.heap.ResetCounters();

        EXPECT_EQ(Write(sectorSize, {{sectorSize, sectorSize, 0x07, 1}}), 0);
        EXPECT_EQ(Bytes(0, sectorSize),
                  Sector(sectorSize, {{0x80, 0xFE, 0xFF, 0xFF, 0x07, 0xFE, 0xFF, 0xFF, 1, 0, 0, 0, 1, 0, 0, 0}}));
        EXPECT_EQ(Bytes(sectorSize, 1), std::vector<uint8_t>{0xEE});
        EXPECT_EQ(machine.heap.Sizes(), std::vector<uint64_t>{512});
    }
}

TEST_F(ImageMbrTest, ASectorSizeOfZeroMeans512)
{
    UseMemory(kMiB);

    EXPECT_EQ(Write(0, {{1024, 2048, 0x07, 0}}), 0);
    EXPECT_EQ(Bytes(0, 512), Sector(512, {{0x00, 0xFE, 0xFF, 0xFF, 0x07, 0xFE, 0xFF, 0xFF, 2, 0, 0, 0, 4, 0, 0, 0}}));
    EXPECT_EQ(Steps(), (std::vector<Step>{{0, 512}, kFlush}));
}

TEST_F(ImageMbrTest, OnlyFourEntriesFit)
{
    UseMemory(kMiB);
    Entries entries;
    std::vector<std::vector<uint8_t>> records;
    for (uint8_t i = 1; i <= 5; ++i) {
        entries.push_back({uint64_t{i} * 512, uint64_t{i} * 1024, i, 0});
        if (i <= 4) {
            records.push_back(
                {0, 0xFE, 0xFF, 0xFF, i, 0xFE, 0xFF, 0xFF, i, 0, 0, 0, static_cast<uint8_t>(2 * i), 0, 0, 0});
        }
    }

    EXPECT_EQ(Write(512, entries), 0);
    EXPECT_EQ(Bytes(0, 512), Sector(512, records));
}

TEST_F(ImageMbrTest, AnEntryWithoutLengthIsWrittenAllTheSame)
{
    UseMemory(kMiB);

    EXPECT_EQ(Write(512, {{0, 0, 0x07, 0}, {512, 0, 0x83, 0xFF}}), 0);
    EXPECT_EQ(Bytes(0, 512), Sector(512, {{0x00, 0xFE, 0xFF, 0xFF, 0x07, 0xFE, 0xFF, 0xFF, 0, 0, 0, 0, 0, 0, 0, 0},
                                          {0x80, 0xFE, 0xFF, 0xFF, 0x83, 0xFE, 0xFF, 0xFF, 1, 0, 0, 0, 0, 0, 0, 0}}));
}

TEST_F(ImageMbrTest, NumbersAreDividedRoundedDownAndCutTo32Bits)
{
    UseMemory(kMiB);
    const uint64_t offset = 0x1'2345'6789ull * 512 + 511;
    const uint64_t length = 0x2'9ABC'DEF0ull * 512 + 1;

    EXPECT_EQ(Write(512, {{offset, length, 0x07, 0}}), 0);
    EXPECT_EQ(Bytes(0, 512), Sector(512, {{0x00, 0xFE, 0xFF, 0xFF, 0x07, 0xFE, 0xFF, 0xFF, 0x89, 0x67, 0x45, 0x23, 0xF0,
                                           0xDE, 0xBC, 0x9A}}));
}

TEST_F(ImageMbrTest, WithoutEntriesThereIsTheSignatureAlone)
{
    UseMemory(kMiB);

    EXPECT_EQ(kk::WriteImageMbr(*target, 512, nullptr, 0), 0);
    EXPECT_EQ(Bytes(0, 512), Sector(512, {}));
}

TEST_F(ImageMbrTest, TheSectorIsWrittenOnceAndFlushed)
{
    UseMemory(kMiB);

    EXPECT_EQ(Write(4096, {{kMiB, kMiB, 0x07, 0}}), 0);
    EXPECT_EQ(Steps(), (std::vector<Step>{{0, 4096}, kFlush}));
    EXPECT_EQ(machine.heap.LiveBlocks(), 1u);  // the target itself
}

TEST_F(ImageMbrTest, AFailingWriteIsReportedAfterTheFlush)
{
    UseMemory(kMiB);
    FailWrite(1, 0xC00000A2);

    EXPECT_EQ(Write(512, {}), Status(0xC00000A2));
    EXPECT_EQ(Steps(), (std::vector<Step>{{0, 512}, kFlush}));
}

TEST_F(ImageMbrTest, AFailingFlushIsIgnored)
{
    UseMemory(kMiB);
    device->flushStatus = Status(0xC0000185);

    EXPECT_EQ(Write(512, {}), 0);

    FailWrite(1, 0xC00000A2);
    EXPECT_EQ(Write(512, {}), Status(0xC00000A2));
}

TEST_F(ImageMbrTest, WithoutMemoryNothingIsWritten)
{
    UseMemory(kMiB);
    machine.faults.Fail({.kind = machine::CallKind::Allocate}, 1, 0);

    EXPECT_EQ(Write(512, {}), Status(0xC0000001));
    EXPECT_TRUE(Steps().empty());
}

TEST_F(ImageMbrTest, TheTableIsValidForAnotherReader)
{
    const TemporaryFolder folder;
    const std::string file = (folder / "disk").string();
    std::ofstream(file).close();
    std::filesystem::resize_file(file, 256 * kMiB);
    storage = std::make_unique<machine::FileStorage>(file);

    ASSERT_EQ(
        Write(512, {{kMiB, 100 * kMiB, 0x07, 0}, {101 * kMiB, 50 * kMiB, 0x0C, 1}, {160 * kMiB, 96 * kMiB, 0x83, 0}}),
        0);

    EXPECT_EQ(ComplaintAboutMbr(file), "");
    EXPECT_EQ(Shell("sfdisk -J '" + file +
                    "' | jq -c '.partitiontable | [.label, .id, [.partitions[] | [.start, .size, .type, .bootable]]]'"),
              "[\"dos\",\"0x00000000\",[[2048,204800,\"7\",null],[206848,102400,\"c\",true],[327680,196608,\"83\","
              "null]]]\n");
}

}  // namespace
