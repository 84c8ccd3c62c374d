// What an edit makes of the headers.

#include "partition/gpt_edit_fixture.h"

namespace kk {
namespace {

using GptEditHeaderTest = GptEditTest;

TEST_F(GptEditHeaderTest, NothingButTheChecksumsChanges)
{
    for (const GptEdit& edit : {Adding(200, 300), Resizing(100, 150), Removing(100)}) {
        UseGpt({100});
        machine::GptHeaderRecord expected[2];
        for (const Copy copy : {kPrimary, kBackup}) {
            ChangeHeader(copy, [copy](auto& header) {
                header.revision = 0x11223344;
                header.reserved = 0x55667788 + copy;
                header.ownLba = 0x1111111111111111;
                header.firstUsableLba = 0x2222222222222222;
                header.lastUsableLba = 0x3333333333333333;
                header.diskId = kId;
            });
            expected[copy] = Header(copy);
        }

        EXPECT_EQ(Edit(edit), KK_STATUS_SUCCESS);
        for (const Copy copy : {kPrimary, kBackup}) {
            ExpectValidChecksums(copy);
            expected[copy].headerCrc32 = Header(copy).headerCrc32;
            expected[copy].entriesCrc32 = Header(copy).entriesCrc32;
            EXPECT_EQ(machine::BytesOf(Header(copy)), machine::BytesOf(expected[copy])) << copy;
        }
    }
}

TEST_F(GptEditHeaderTest, TheRestOfTheSectorIsCleared)
{
    for (const uint32_t bytesInSector : {512u, 520u, 4096u}) {
        UseGpt({100}, bytesInSector);
        for (const Copy copy : {kPrimary, kBackup}) {
            ASSERT_TRUE(storage->Write(HeaderOffset(copy) + 92, std::vector<uint8_t>(bytesInSector - 92, 0xAA)));
        }

        EXPECT_EQ(Edit(Removing(100)), KK_STATUS_SUCCESS);
        for (const Copy copy : {kPrimary, kBackup}) {
            EXPECT_EQ(Bytes(HeaderOffset(copy) + 92, bytesInSector - 92), std::vector<uint8_t>(bytesInSector - 92));
            ExpectValidChecksums(copy);
        }
    }
}

TEST_F(GptEditHeaderTest, ASectorThatEndsWithTheHeaderIsEnough)
{
    UseSmallSectors(92, 1000);

    EXPECT_EQ(Edit(Removing(1000)), KK_STATUS_SUCCESS);
    EXPECT_EQ(Steps().at(4), "write 92+92");
    ExpectValidChecksums(kPrimary);
    ExpectValidChecksums(kBackup);
}

TEST_F(GptEditHeaderTest, TheHeadersChecksumCoversItsSizeButNoMoreThan92Bytes)
{
    for (const uint32_t size : {0u, 1u, 16u, 17u, 20u, 91u, 92u, 93u, 512u, 4096u, 0xFFFFFFFFu}) {
        UseGpt({100});
        for (const Copy copy : {kPrimary, kBackup}) {
            ChangeHeader(copy, [size](auto& header) { header.headerBytes = size; });
        }

        EXPECT_EQ(Edit(Removing(100)), KK_STATUS_SUCCESS);
        for (const Copy copy : {kPrimary, kBackup}) {
            machine::GptHeaderRecord header = Header(copy);
            EXPECT_EQ(header.headerBytes, size);
            const uint32_t stored = header.headerCrc32;
            header.headerCrc32 = 0;
            std::vector<uint8_t> covered = machine::BytesOf(header);
            covered.resize(std::min(size, 92u));
            EXPECT_EQ(stored, machine::Crc32(covered)) << size;
        }
    }
}

TEST_F(GptEditHeaderTest, TheArraysChecksumCoversAllEntriesAndNothingBehindThem)
{
    struct Shape {
        uint32_t count;
        uint32_t bytes;
    };
    for (const Shape& shape : {Shape{128, 128}, Shape{1, 128}, Shape{5, 128}, Shape{64, 256}, Shape{3, 4096},
                               Shape{7, 129}, Shape{9, 200}, Shape{2, 1000}}) {
        UseTable({.partitions = {{.start = 300 * 512, .length = 512}},
                  .entryCount = shape.count,
                  .entryBytes = shape.bytes});
        const uint64_t arrayBytes = uint64_t{shape.count} * shape.bytes;
        // What shares the array's last sector with it.
        const std::vector<uint8_t> rest(512 - arrayBytes % 512, 0xAA);
        ASSERT_TRUE(storage->Write(1024 + arrayBytes, rest));

        EXPECT_EQ(Edit(Resizing(300, 400)), KK_STATUS_SUCCESS);
        ExpectValidChecksums(kPrimary);
        ExpectValidChecksums(kBackup);
        EXPECT_EQ(Steps().at(3), "write 1024+" + std::to_string(arrayBytes));
        EXPECT_EQ(Bytes(1024 + arrayBytes, rest.size()), rest);
        EXPECT_EQ(Entry(kBackup, 0).lastLba, 400u);
    }
}

TEST_F(GptEditHeaderTest, EntriesOfAnySizeFollowEachOther)
{
    for (const uint32_t entryBytes : {128u, 129u, 256u, 4096u}) {
        UseTable({.partitions = {{.start = 300 * 512, .length = 512}, {.start = 400 * 512, .length = 512, .slot = 3}},
                  .entryCount = 4,
                  .entryBytes = entryBytes});

        EXPECT_EQ(Edit(Resizing(400, 410)), KK_STATUS_SUCCESS);
        EXPECT_EQ(number, 4u);
        EXPECT_EQ(Edit(Adding(500, 600)), KK_STATUS_SUCCESS);
        EXPECT_EQ(number, 2u);
        EXPECT_EQ(Number(1024 + entryBytes + 32, 8), 500u);
        EXPECT_EQ(Number(1024 + 3 * entryBytes + 40, 8), 410u);
    }
}

TEST_F(GptEditHeaderTest, WrongChecksumsAreNotNoticedButRenewed)
{
    UseGpt({100});
    for (const Copy copy : {kPrimary, kBackup}) {
        ChangeHeader(copy, [](auto& header) {
            header.headerCrc32 = 0x12345678;
            header.entriesCrc32 = 0x9ABCDEF0;
        });
    }

    EXPECT_EQ(Edit(Resizing(100, 200)), KK_STATUS_SUCCESS);
    ExpectValidChecksums(kPrimary);
    ExpectValidChecksums(kBackup);
}

TEST_F(GptEditHeaderTest, AnEditAndItsReverseGiveTheSameDisk)
{
    UseGpt({100, 200});
    const std::vector<uint8_t> before = WholeDisk();

    EXPECT_EQ(Edit(Adding(300, 400)), KK_STATUS_SUCCESS);
    EXPECT_EQ(Edit(Resizing(200, 250)), KK_STATUS_SUCCESS);
    EXPECT_NE(WholeDisk(), before);
    EXPECT_EQ(Edit(Removing(300)), KK_STATUS_SUCCESS);
    EXPECT_EQ(Edit(Resizing(200, 200)), KK_STATUS_SUCCESS);
    EXPECT_EQ(WholeDisk(), before);
}

TEST_F(GptEditHeaderTest, NothingOutsideTheTablesIsWritten)
{
    UseGpt({100});
    const std::vector<uint8_t> before = WholeDisk();
    for (const GptEdit& edit : {Adding(200, 300), Resizing(100, 150), Removing(100)}) {
        EXPECT_EQ(Edit(edit), KK_STATUS_SUCCESS);

        const std::vector<uint8_t> after = WholeDisk();
        const auto at = [](uint64_t lba) { return static_cast<ptrdiff_t>(lba * 512); };
        EXPECT_TRUE(std::equal(before.begin(), before.begin() + at(1), after.begin()));
        EXPECT_TRUE(std::equal(before.begin() + at(34), before.begin() + at(LastLba() - 32), after.begin() + at(34)));
    }
}

}  // namespace
}  // namespace kk
