#include "exports/support/partition_edit_test.h"

namespace {

using ::testing::ElementsAre;

class CreatePartitionOrderTest : public PartitionEditTest {};

TEST_F(CreatePartitionOrderTest, AGptIsEditedCopyByCopyAndThenLookedAtAgain)
{
    AddDisk(kSmallGpt, {});

    ASSERT_EQ(Create(0, kDiskSize), 0);

    const std::string array = std::to_string(kDiskSize - 33 * 512);
    const std::string header = std::to_string(kDiskSize - 512);
    EXPECT_THAT(Steps(),
                ElementsAre("open drive 0", "geometry of drive 0", "layout of drive 0", "close drive 0",
                            "open drive 0 for writing", "read drive 0 at 512", "read drive 0 at 512",
                            "read drive 0 at 1024", "write drive 0 at 1024", "write drive 0 at 512",
                            "read drive 0 at " + header, "read drive 0 at " + array, "write drive 0 at " + array,
                            "write drive 0 at " + header, "flush drive 0", "refresh drive 0", "close drive 0"));
}

TEST_F(CreatePartitionOrderTest, AnMbrIsOneSector)
{
    AddDisk(kLargeMbr, {});

    ASSERT_EQ(Create(0, kDiskSize), 0);

    EXPECT_THAT(Steps(), ElementsAre("open drive 0", "geometry of drive 0", "layout of drive 0", "close drive 0",
                                     "open drive 0 for writing", "read drive 0 at 0", "write drive 0 at 0",
                                     "flush drive 0", "refresh drive 0", "close drive 0"));
    EXPECT_EQ(machine.journal.Last({.kind = machine::CallKind::WriteFile})->length, 4096u);
}

TEST_F(CreatePartitionOrderTest, TheDriveIsOpenedForWritingBeforeTheSizesAreJudged)
{
    AddDisk(kSmallGpt, {{8 * kMiB, 8 * kMiB}});
    for (const Place& region : {Place{0, 65536}, Place{8 * kMiB, 8 * kMiB}}) {
        ASSERT_NE(Create(region.start, region.length), 0);

        EXPECT_THAT(Steps(), ElementsAre("open drive 0", "geometry of drive 0", "layout of drive 0", "close drive 0",
                                         "open drive 0 for writing", "close drive 0"));
    }
}

TEST_F(CreatePartitionOrderTest, AFailedEditIsNotFollowedByAnotherLook)
{
    AddDisk(kSmallMbr, {});
    machine.faults.Fail({.kind = machine::CallKind::WriteFile}, 1, 0xC0000185);

    ASSERT_EQ(Create(0, kDiskSize), Status(0xC0000185));

    EXPECT_EQ(Steps().back(), "close drive 0");
    EXPECT_THAT(Steps(), ::testing::Not(::testing::Contains("refresh drive 0")));
    EXPECT_THAT(Steps(), ::testing::Not(::testing::Contains("flush drive 0")));
    EXPECT_EQ(created, kNotWritten);
}

TEST_F(CreatePartitionOrderTest, WhetherTheDriverLooksAgainIsNotAsked)
{
    AddDisk(kSmallGpt, {});
    Refuse(0x70140, 0xC00000BB);

    EXPECT_EQ(Create(4 * kMiB, 8 * kMiB), 0);

    EXPECT_EQ(created, 4 * kMiB);
    EXPECT_TRUE(Partitions().empty()) << "the driver has not heard of it";
    EXPECT_EQ(ReadSlots(TheDisk(), kSmallGpt).size(), 1u);
}

TEST_F(CreatePartitionOrderTest, NoVolumeIsTouched)
{
    AddDisk(kSmallGpt, {{8 * kMiB, 8 * kMiB}});

    ASSERT_EQ(Create(20 * kMiB, 8 * kMiB), 0);

    EXPECT_EQ(machine.journal.Count({.object = "HarddiskVolume"}), 0u);
}

}  // namespace
