// Adding: which entry is filled, and with what.

#include "partition/gpt_edit_fixture.h"

namespace kk {
namespace {

class GptAddTest : public GptEditTest {
protected:
    /// The 36 units of a new partition's name.
    std::u16string NameAfterAdding(const char16_t* name)
    {
        UseGpt({});
        EXPECT_EQ(Edit(Adding(100, 200, name)), KK_STATUS_SUCCESS);
        const machine::GptEntryRecord entry = Entry(kPrimary, 0);
        return {std::begin(entry.name), std::end(entry.name)};
    }

    static std::u16string Padded(std::u16string name)
    {
        name.resize(36);
        return name;
    }
};

TEST_F(GptAddTest, EveryByteOfTheEntryIsGiven)
{
    UseGpt({});
    std::vector<uint8_t> expected = {4,  3,  2,  1,  6,  5,  8,  7,  9,  10, 11, 12, 13, 14, 15, 16, 36,  35, 34,   33,
                                     38, 37, 40, 39, 41, 42, 43, 44, 45, 46, 47, 48, 1,  2,  3,  4,  5,   6,  7,    8,
                                     17, 18, 19, 20, 21, 22, 23, 24, 0,  0,  0,  0,  0,  0,  0,  0,  'D', 0,  0xE4, 0};
    expected.resize(128);

    EXPECT_EQ(Edit(Adding(0x0807060504030201, 0x1817161514131211, u"D\u00E4")), KK_STATUS_SUCCESS);
    EXPECT_EQ(Bytes(EntryOffset(kPrimary, 0), 128), expected);
    EXPECT_EQ(Bytes(EntryOffset(kBackup, 0), 128), expected);
}

TEST_F(GptAddTest, NothingElseOfTheArraysChanges)
{
    UseGpt({100, 200, 300});
    std::vector<uint8_t> expected = Bytes(ArrayOffset(kPrimary), 16384);

    EXPECT_EQ(Edit(Adding(400, 500)), KK_STATUS_SUCCESS);
    const std::vector<uint8_t> entry = Bytes(EntryOffset(kPrimary, 3), 128);
    std::copy(entry.begin(), entry.end(), expected.begin() + 3 * 128);
    EXPECT_EQ(Bytes(ArrayOffset(kPrimary), 16384), expected);
    EXPECT_EQ(Bytes(ArrayOffset(kBackup), 16384), expected);
}

TEST_F(GptAddTest, TheFirstUnusedEntryIsFilled)
{
    UseTable({.partitions = {{.start = 100 * 512, .length = 512},
                             {.start = 200 * 512, .length = 512},
                             {.start = 300 * 512, .length = 512, .slot = 3}}});

    EXPECT_EQ(Edit(Adding(400, 500)), KK_STATUS_SUCCESS);
    EXPECT_EQ(number, 3u);
    EXPECT_EQ(Entry(kPrimary, 2).firstLba, 400u);
    EXPECT_EQ(Edit(Adding(600, 700)), KK_STATUS_SUCCESS);
    EXPECT_EQ(number, 5u);
    EXPECT_EQ(Entry(kBackup, 4).firstLba, 600u);
}

TEST_F(GptAddTest, AnyByteOfTheTypeMakesAnEntryUsed)
{
    for (size_t i = 0; i < 16; ++i) {
        UseGpt({});
        ChangeBothEntries(0, [i](auto& entry) { reinterpret_cast<uint8_t*>(&entry.type)[i] = 1; });

        EXPECT_EQ(Edit(Adding(100, 200)), KK_STATUS_SUCCESS);
        EXPECT_EQ(number, 2u) << i;
    }
}

TEST_F(GptAddTest, AnEntryWithoutATypeIsUnusedAndAllOfItGoes)
{
    UseGpt({});
    ChangeBothEntries(0, [](auto& entry) {
        std::memset(&entry, 0xAA, sizeof(entry));
        entry.type = {};
    });

    EXPECT_EQ(Edit(Adding(100, 200, u"New")), KK_STATUS_SUCCESS);
    EXPECT_EQ(number, 1u);
    const machine::GptEntryRecord entry = Entry(kPrimary, 0);
    EXPECT_EQ(entry.id, kId);
    EXPECT_EQ(entry.attributes, 0u);
    EXPECT_EQ(std::u16string(entry.name, 36), Padded(u"New"));
}

TEST_F(GptAddTest, WhatFollowsTheNameInALongEntryIsZeroed)
{
    UseTable({.entryCount = 8, .entryBytes = 512});
    ASSERT_TRUE(storage->Write(EntryOffset(kPrimary, 0) + 16, std::vector<uint8_t>(512 - 16, 0xAA)));

    EXPECT_EQ(Edit(Adding(100, 200, u"Name of more than thirty-six characters")), KK_STATUS_SUCCESS);
    EXPECT_EQ(number, 1u);
    EXPECT_EQ(Bytes(EntryOffset(kPrimary, 0) + 126, 386), std::vector<uint8_t>(386));
    EXPECT_EQ(Bytes(EntryOffset(kPrimary, 1), 512), std::vector<uint8_t>(512));
}

TEST_F(GptAddTest, ANameIsCutTo35Units)
{
    const std::u16string longest = u"12345678901234567890123456789012345";

    EXPECT_EQ(NameAfterAdding(u"Basic data partition"), Padded(u"Basic data partition"));
    EXPECT_EQ(NameAfterAdding(u""), Padded(u""));
    EXPECT_EQ(NameAfterAdding(longest.c_str()), Padded(longest));
    EXPECT_EQ(NameAfterAdding((longest + u"6").c_str()), Padded(longest));
    EXPECT_EQ(NameAfterAdding((longest + u"678901").c_str()), Padded(longest));
}

TEST_F(GptAddTest, UnitsOfANameAreKeptWhole)
{
    EXPECT_EQ(NameAfterAdding(u"\u0100\u00FF\U0001F4BE\uFFFF"), Padded(u"\u0100\u00FF\U0001F4BE\uFFFF"));
}

TEST_F(GptAddTest, RangesAreNotChecked)
{
    UseGpt({100});

    EXPECT_EQ(Edit(Adding(100, 100)), KK_STATUS_SUCCESS);
    EXPECT_EQ(Edit(Adding(UINT64_MAX, 0)), KK_STATUS_SUCCESS);
    EXPECT_EQ(Entry(kPrimary, 1).firstLba, 100u);
    EXPECT_EQ(Entry(kPrimary, 2).firstLba, UINT64_MAX);
    EXPECT_EQ(Entry(kPrimary, 2).lastLba, 0u);
}

TEST_F(GptAddTest, TheLastOf128EntriesIsFilled)
{
    UseGpt(std::vector<uint64_t>(127, 100));

    EXPECT_EQ(Edit(Adding(400, 500)), KK_STATUS_SUCCESS);
    EXPECT_EQ(number, 128u);
    EXPECT_EQ(Entry(kBackup, 127).firstLba, 400u);
}

TEST_F(GptAddTest, AFullTableIsLeftAsItIs)
{
    UseGpt(std::vector<uint64_t>(128, 100));
    const std::vector<uint8_t> before = WholeDisk();

    EXPECT_EQ(Edit(Adding(400, 500)), Status(0xC000007F));
    EXPECT_EQ(WholeDisk(), before);
    EXPECT_EQ(Steps(), (std::vector<std::string>{"read 512+512", "read 512+512", "read 1024+16384"}));
    EXPECT_EQ(number, kUntouched);
}

TEST_F(GptAddTest, ATableOfOneEntryIsFullWithOne)
{
    UseTable({.entryCount = 1});

    EXPECT_EQ(Edit(Adding(100, 200)), KK_STATUS_SUCCESS);
    EXPECT_EQ(number, 1u);
    EXPECT_EQ(Edit(Adding(300, 400)), Status(0xC000007F));
}

TEST_F(GptAddTest, TheNumberIsOptional)
{
    UseGpt({});

    EXPECT_EQ(EditGptPartition(*target, 512, Adding(100, 200), nullptr), KK_STATUS_SUCCESS);
    EXPECT_EQ(Entry(kPrimary, 0).firstLba, 100u);
}

TEST_F(GptAddTest, CopiesThatDifferAreEachFilledInTheirOwnSlotAndTheNumberIsThePrimarys)
{
    UseGpt({100, 200});
    ChangeEntry(kBackup, 0, [](auto& entry) { entry.type = {}; });

    EXPECT_EQ(Edit(Adding(400, 500)), KK_STATUS_SUCCESS);
    EXPECT_EQ(number, 3u);
    EXPECT_EQ(Entry(kPrimary, 2).firstLba, 400u);
    EXPECT_EQ(Entry(kBackup, 0).firstLba, 400u);
    EXPECT_EQ(Entry(kBackup, 2).firstLba, 0u);
}

TEST_F(GptAddTest, AFullBackupFailsAfterThePrimaryWasWritten)
{
    UseGpt(std::vector<uint64_t>(128, 100));
    ChangeEntry(kPrimary, 5, [](auto& entry) { entry.type = {}; });

    EXPECT_EQ(Edit(Adding(400, 500)), Status(0xC000007F));
    EXPECT_EQ(number, 6u);
    EXPECT_EQ(Entry(kPrimary, 5).firstLba, 400u);
    EXPECT_EQ(Steps().back(), "read 1031680+16384");
}

}  // namespace
}  // namespace kk
