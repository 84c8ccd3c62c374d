// Which record of an MBR is edited, and what becomes of it.

#include "partition/mbr_edit_fixture.h"

namespace kk {
namespace {

using Record16 = std::vector<uint8_t>;
constexpr uint64_t kTwoTo32 = uint64_t{1} << 32;

TEST_F(MbrEditTest, EveryByteOfANewRecordIsGivenAndNothingElseChanges)
{
    UseMbr({7, 7});
    const std::vector<uint8_t> expected =
        DiskWith(2, {0x00, 0xFE, 0xFF, 0xFF, 0x27, 0xFE, 0xFF, 0xFF, 4, 3, 2, 1, 0x44, 0x33, 0x22, 0x11});

    EXPECT_EQ(Edit(Adding(0x01020304, 0x11223344, 0x27)), KK_STATUS_SUCCESS);
    EXPECT_EQ(WholeDisk(), expected);
    EXPECT_EQ(number, 3u);
}

TEST_F(MbrEditTest, ANewRecordTakesTheFirstSlotWithoutAType)
{
    for (uint32_t free = 0; free < 4; ++free) {
        std::vector<uint8_t> types = {1, 1, 1, 1};
        types[free] = 0;
        types[3] = free < 3 ? 0 : types[3];
        UseMbr(types);

        EXPECT_EQ(Edit(Adding(2048, 100)), KK_STATUS_SUCCESS);
        EXPECT_EQ(number, free + 1);
        EXPECT_EQ(Record(free), (Record16{0, 0xFE, 0xFF, 0xFF, 7, 0xFE, 0xFF, 0xFF, 0, 8, 0, 0, 100, 0, 0, 0}));
    }
}

TEST_F(MbrEditTest, AnyTypeButZeroOccupiesItsSlot)
{
    for (uint32_t type = 0; type <= 0xFF; ++type) {
        UseMbr({static_cast<uint8_t>(type)});

        EXPECT_EQ(Edit(Adding(2048, 100)), KK_STATUS_SUCCESS);
        EXPECT_EQ(number, type == 0 ? 1u : 2u) << type;
    }
}

TEST_F(MbrEditTest, AFullTableIsLeftAsItIs)
{
    UseMbr({0x07, 0x0F, 0x83, 0xEE});
    const std::vector<uint8_t> before = WholeDisk();

    EXPECT_EQ(Edit(Adding(2048, 100)), Status(0xC000007F));
    EXPECT_EQ(WholeDisk(), before);
    EXPECT_EQ(number, kUntouched);
    EXPECT_EQ(Steps(), std::vector<std::string>{"read 0+512"});
}

TEST_F(MbrEditTest, SectorsOfANewRecordAreCutTo32Bits)
{
    UseMbr({});

    EXPECT_EQ(Edit(Adding(5 * kTwoTo32 + 2048, kTwoTo32 + 3)), KK_STATUS_SUCCESS);
    EXPECT_EQ(Record(0), (Record16{0, 0xFE, 0xFF, 0xFF, 7, 0xFE, 0xFF, 0xFF, 0, 8, 0, 0, 3, 0, 0, 0}));
}

TEST_F(MbrEditTest, RemovingZeroesTheRecordAndNothingElse)
{
    for (uint32_t slot = 0; slot < 4; ++slot) {
        UseMbr({7, 7, 7, 7});
        const std::vector<uint8_t> expected = DiskWith(slot, Record16(16));

        EXPECT_EQ(Edit(Removing(100 * (slot + 1))), KK_STATUS_SUCCESS);
        EXPECT_EQ(WholeDisk(), expected);
        EXPECT_EQ(number, slot + 1);
    }
}

TEST_F(MbrEditTest, ResizingChangesTheSectorCountAndNothingElse)
{
    UseMbr({7, 0x83, 7});
    const std::vector<uint8_t> expected =
        DiskWith(1, {0x80, 1, 2, 3, 0x83, 4, 5, 6, 200, 0, 0, 0, 0xDD, 0xCC, 0xBB, 0xAA});

    EXPECT_EQ(Edit(Resizing(200, 0xAABBCCDD)), KK_STATUS_SUCCESS);
    EXPECT_EQ(WholeDisk(), expected);
    EXPECT_EQ(number, 2u);
}

TEST_F(MbrEditTest, ANewSectorCountIsCutTo32Bits)
{
    UseMbr({7});

    EXPECT_EQ(Edit(Resizing(100, 7 * kTwoTo32 + 9)), KK_STATUS_SUCCESS);
    EXPECT_EQ(Record(0), (Record16{0x80, 1, 2, 3, 7, 4, 5, 6, 100, 0, 0, 0, 9, 0, 0, 0}));
}

TEST_F(MbrEditTest, AStartThatNoRecordHasMatchesNothing)
{
    UseMbr({7, 7, 7});
    const std::vector<uint8_t> before = WholeDisk();
    // The last two would match if they were cut to what a record holds.
    for (const uint64_t lba : {uint64_t{99}, uint64_t{101}, uint64_t{0}, kTwoTo32 + 100, 3 * kTwoTo32 + 200}) {
        for (const MbrEdit& edit : {Removing(lba), Resizing(lba, 5)}) {
            EXPECT_EQ(Edit(edit), Status(0xC000000D)) << lba;
            EXPECT_EQ(WholeDisk(), before);
            EXPECT_EQ(number, kUntouched);
            EXPECT_EQ(Steps(), std::vector<std::string>{"read 0+512"});
        }
    }
}

TEST_F(MbrEditTest, EachModeReadsItsOwnMembersAlone)
{
    UseMbr({7, 7});
    MbrEdit edit = Adding(2048, 8, 0x83);
    edit.matchLba = 200;

    EXPECT_EQ(Edit(edit), KK_STATUS_SUCCESS);
    EXPECT_EQ(number, 3u);
    edit.mode = TableEditMode::Resize;
    EXPECT_EQ(Edit(edit), KK_STATUS_SUCCESS);
    EXPECT_EQ(Record(1), (Record16{0x80, 1, 2, 3, 7, 4, 5, 6, 200, 0, 0, 0, 8, 0, 0, 0}));
    edit.mode = TableEditMode::Remove;
    EXPECT_EQ(Edit(edit), KK_STATUS_SUCCESS);
    EXPECT_EQ(Record(1), Record16(16));
}

TEST_F(MbrEditTest, ARecordWithoutATypeIsNotMeant)
{
    UseMbr({0, 7});
    SetRecord(1, {0, {}, 7, {}, 100, 10});

    EXPECT_EQ(Edit(Resizing(100, 5)), KK_STATUS_SUCCESS);
    EXPECT_EQ(number, 2u);
    EXPECT_EQ(Edit(Removing(100)), KK_STATUS_SUCCESS);
    EXPECT_EQ(number, 2u);
    EXPECT_EQ(Edit(Removing(100)), Status(0xC000000D));
}

TEST_F(MbrEditTest, TheFirstOfSeveralWithTheSameStartIsMeant)
{
    UseMbr({7, 7, 7});
    SetRecord(1, {0, {}, 7, {}, 300, 10});

    EXPECT_EQ(Edit(Removing(300)), KK_STATUS_SUCCESS);
    EXPECT_EQ(number, 2u);
}

TEST_F(MbrEditTest, TheLargestStartIsFound)
{
    UseMbr({7});
    SetRecord(0, {0, {}, 7, {}, 0xFFFFFFFF, 10});

    EXPECT_EQ(Edit(Removing(0xFFFFFFFF)), KK_STATUS_SUCCESS);
    EXPECT_EQ(Record(0), Record16(16));
}

TEST_F(MbrEditTest, ContainersAreRecordsLikeOthers)
{
    UseMbr({0x05, 0x0F});

    EXPECT_EQ(Edit(Resizing(200, 5)), KK_STATUS_SUCCESS);
    EXPECT_EQ(Edit(Removing(100)), KK_STATUS_SUCCESS);
    EXPECT_EQ(Record(0), Record16(16));
    EXPECT_EQ(Record(1)[12], 5);
}

TEST_F(MbrEditTest, TheNumberIsOptional)
{
    UseMbr({7});

    EXPECT_EQ(EditMbrPartition(*target, 512, Removing(100), nullptr), KK_STATUS_SUCCESS);
    EXPECT_EQ(Record(0), Record16(16));
}

}  // namespace
}  // namespace kk
