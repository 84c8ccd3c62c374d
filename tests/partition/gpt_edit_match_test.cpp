// Removing and resizing: which entry is meant, and what becomes of it.

#include "partition/gpt_edit_fixture.h"

namespace kk {
namespace {

constexpr uint64_t kTwoTo32 = uint64_t{1} << 32;

class GptMatchTest : public GptEditTest {
protected:
    void ExpectNoMatch(uint64_t lba)
    {
        for (const GptEdit& edit : {Removing(lba), Resizing(lba, 900)}) {
            const std::vector<uint8_t> before = WholeDisk();
            EXPECT_EQ(Edit(edit), Status(0xC000000D)) << lba;
            EXPECT_EQ(WholeDisk(), before);
            EXPECT_EQ(Steps(), (std::vector<std::string>{"read 512+512", "read 512+512", "read 1024+16384"}));
            EXPECT_EQ(number, kUntouched);
        }
    }
};

TEST_F(GptMatchTest, RemovingZeroesOneWholeEntry)
{
    UseGpt({100, 200, 300});
    std::vector<uint8_t> expected = Bytes(ArrayOffset(kPrimary), 16384);
    std::fill_n(expected.begin() + 128, 128, uint8_t{0});

    EXPECT_EQ(Edit(Removing(200)), KK_STATUS_SUCCESS);
    EXPECT_EQ(number, 2u);
    EXPECT_EQ(Bytes(ArrayOffset(kPrimary), 16384), expected);
    EXPECT_EQ(Bytes(ArrayOffset(kBackup), 16384), expected);
}

TEST_F(GptMatchTest, RemovingZeroesAllOfALongEntry)
{
    UseTable({.partitions = {{.start = 51200, .length = 512}, {.start = 102400, .length = 512}},
              .entryCount = 8,
              .entryBytes = 256});
    ASSERT_TRUE(storage->Write(EntryOffset(kPrimary, 0) + 128, std::vector<uint8_t>(128, 0xAA)));
    const std::vector<uint8_t> second = Bytes(EntryOffset(kPrimary, 1), 256);

    EXPECT_EQ(Edit(Removing(100)), KK_STATUS_SUCCESS);
    EXPECT_EQ(Bytes(EntryOffset(kPrimary, 0), 256), std::vector<uint8_t>(256));
    EXPECT_EQ(Bytes(EntryOffset(kPrimary, 1), 256), second);
}

TEST_F(GptMatchTest, ResizingChangesTheLastLbaAndNothingElse)
{
    UseGpt({100, 200, 300});
    ChangeBothEntries(1, [](auto& entry) {
        std::memset(&entry, 0x77, sizeof(entry));
        entry.firstLba = 200;
    });
    std::vector<uint8_t> expected = Bytes(ArrayOffset(kPrimary), 16384);
    constexpr uint8_t lastLba[8] = {0x18, 0x17, 0x16, 0x15, 0x14, 0x13, 0x12, 0x11};
    std::copy(std::begin(lastLba), std::end(lastLba), expected.begin() + 128 + 40);

    EXPECT_EQ(Edit(Resizing(200, 0x1112131415161718)), KK_STATUS_SUCCESS);
    EXPECT_EQ(number, 2u);
    EXPECT_EQ(Bytes(ArrayOffset(kPrimary), 16384), expected);
    EXPECT_EQ(Bytes(ArrayOffset(kBackup), 16384), expected);
}

TEST_F(GptMatchTest, ALongEntryKeepsWhatFollowsItsNameWhenItIsResized)
{
    UseTable({.partitions = {{.start = 51200, .length = 512}}, .entryCount = 8, .entryBytes = 256});
    ASSERT_TRUE(storage->Write(EntryOffset(kPrimary, 0) + 128, std::vector<uint8_t>(128, 0xAA)));

    EXPECT_EQ(Edit(Resizing(100, 900)), KK_STATUS_SUCCESS);
    EXPECT_EQ(Bytes(EntryOffset(kPrimary, 0) + 128, 128), std::vector<uint8_t>(128, 0xAA));
}

TEST_F(GptMatchTest, EachModeReadsItsOwnMembersAlone)
{
    UseGpt({100, 200});
    GptEdit adding = Adding(300, 400);
    adding.matchLba = 200;
    GptEdit resizing = Adding(500, 600);
    resizing.mode = TableEditMode::Resize;
    resizing.matchLba = 200;
    GptEdit removing = resizing;
    removing.mode = TableEditMode::Remove;

    EXPECT_EQ(Edit(adding), KK_STATUS_SUCCESS);
    EXPECT_EQ(number, 3u);
    EXPECT_EQ(Edit(resizing), KK_STATUS_SUCCESS);
    EXPECT_EQ(Entry(kPrimary, 1).firstLba, 200u);
    EXPECT_EQ(Entry(kPrimary, 1).lastLba, 600u);
    EXPECT_NE(Entry(kPrimary, 1).id, kId);
    EXPECT_EQ(Edit(removing), KK_STATUS_SUCCESS);
    EXPECT_EQ(Bytes(EntryOffset(kPrimary, 1), 128), std::vector<uint8_t>(128));
}

TEST_F(GptMatchTest, AnEndBeforeTheStartIsStoredAllTheSame)
{
    UseGpt({100});

    EXPECT_EQ(Edit(Resizing(100, 0)), KK_STATUS_SUCCESS);
    EXPECT_EQ(Entry(kPrimary, 0).lastLba, 0u);
    EXPECT_EQ(Entry(kBackup, 0).lastLba, 0u);
}

TEST_F(GptMatchTest, TheStartMustBeExact)
{
    UseTable({.partitions = {{.start = 51200, .length = 50 * 512}}});

    ExpectNoMatch(99);
    ExpectNoMatch(101);
    ExpectNoMatch(149);
    ExpectNoMatch(0);
}

TEST_F(GptMatchTest, StartsAreComparedInAllTheir64Bits)
{
    UseGpt({100, 200});
    ChangeBothEntries(0, [](auto& entry) { entry.firstLba = kTwoTo32 + 2048; });
    ChangeBothEntries(1, [](auto& entry) { entry.firstLba = 4096; });

    ExpectNoMatch(2048);
    ExpectNoMatch(kTwoTo32 + 4096);
    ExpectNoMatch((kTwoTo32 << 8) + 4096);
    EXPECT_EQ(Edit(Removing(kTwoTo32 + 2048)), KK_STATUS_SUCCESS);
    EXPECT_EQ(number, 1u);
}

TEST_F(GptMatchTest, UnusedEntriesAreNotMeant)
{
    UseGpt({100, 100});
    ChangeBothEntries(0, [](auto& entry) { entry.type = {}; });

    EXPECT_EQ(Edit(Resizing(100, 777)), KK_STATUS_SUCCESS);
    EXPECT_EQ(number, 2u);
    EXPECT_EQ(Entry(kPrimary, 0).lastLba, 100u);
    EXPECT_EQ(Edit(Removing(100)), KK_STATUS_SUCCESS);
    ExpectNoMatch(100);
}

TEST_F(GptMatchTest, AnEmptyEntryIsNoPartitionAtLbaZero)
{
    UseGpt({100});

    ExpectNoMatch(0);
}

TEST_F(GptMatchTest, TheFirstOfSeveralWithTheSameStartIsMeant)
{
    UseGpt({100, 200, 200, 200});

    EXPECT_EQ(Edit(Removing(200)), KK_STATUS_SUCCESS);
    EXPECT_EQ(number, 2u);
    EXPECT_EQ(Edit(Removing(200)), KK_STATUS_SUCCESS);
    EXPECT_EQ(number, 3u);
    EXPECT_EQ(Entry(kBackup, 3).firstLba, 200u);
}

TEST_F(GptMatchTest, TheLastEntryIsFound)
{
    UseTable({.partitions = {{.start = 51200, .length = 512, .slot = 127}}});

    EXPECT_EQ(Edit(Resizing(100, 300)), KK_STATUS_SUCCESS);
    EXPECT_EQ(number, 128u);
    EXPECT_EQ(Entry(kBackup, 127).lastLba, 300u);
}

TEST_F(GptMatchTest, CopiesThatDifferAreEachEditedInTheirOwnSlotAndTheNumberIsThePrimarys)
{
    UseGpt({100, 200, 300});
    ChangeEntry(kBackup, 0, [](auto& entry) { entry.firstLba = 300; });
    ChangeEntry(kBackup, 2, [](auto& entry) { entry.firstLba = 100; });

    EXPECT_EQ(Edit(Removing(100)), KK_STATUS_SUCCESS);
    EXPECT_EQ(number, 1u);
    EXPECT_EQ(Entry(kPrimary, 0).type, Guid{});
    EXPECT_EQ(Entry(kPrimary, 2).firstLba, 300u);
    EXPECT_EQ(Entry(kBackup, 0).firstLba, 300u);
    EXPECT_EQ(Entry(kBackup, 2).type, Guid{});
}

TEST_F(GptMatchTest, ABackupWithoutTheEntryFailsAfterThePrimaryWasWritten)
{
    UseGpt({100, 200});
    ChangeEntry(kBackup, 1, [](auto& entry) { entry.firstLba = 201; });
    const std::vector<uint8_t> backup = Bytes(ArrayOffset(kBackup), 33 * 512);

    EXPECT_EQ(Edit(Resizing(200, 777)), Status(0xC000000D));
    EXPECT_EQ(number, 2u);
    EXPECT_EQ(Entry(kPrimary, 1).lastLba, 777u);
    ExpectValidChecksums(kPrimary);
    EXPECT_EQ(Bytes(ArrayOffset(kBackup), 33 * 512), backup);
    EXPECT_EQ(Steps().back(), "read 1031680+16384");
}

TEST_F(GptMatchTest, ABackupThatAloneHasTheEntryIsNotLookedAt)
{
    UseGpt({100});
    ChangeEntry(kPrimary, 0, [](auto& entry) { entry.firstLba = 101; });

    ExpectNoMatch(100);
}

}  // namespace
}  // namespace kk
