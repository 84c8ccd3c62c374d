#include "exports/support/partition_edit_test.h"

namespace {

using ::testing::ElementsAre;

class CreatePartitionOrderTest : public PartitionEditTest {};

TEST_F(CreatePartitionOrderTest, AGptIsEditedCopyByCopyAndThenLookedAtAgain)
{
    SHOWS(KkCreatePartition, KK_STATUS_SUCCESS,
          "a GPT is edited copy by copy, flushed, and the system told to look again");

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
    SHOWS(KkCreatePartition, KK_STATUS_SUCCESS, "an MBR is one sector, read and written whole");

    AddDisk(kLargeMbr, {});

    ASSERT_EQ(Create(0, kDiskSize), 0);

    EXPECT_THAT(Steps(), ElementsAre("open drive 0", "geometry of drive 0", "layout of drive 0", "close drive 0",
                                     "open drive 0 for writing", "read drive 0 at 0", "write drive 0 at 0",
                                     "flush drive 0", "refresh drive 0", "close drive 0"));
    EXPECT_EQ(machine.journal.Last({.kind = machine::CallKind::WriteFile})->length, 4096u);
}

TEST_F(CreatePartitionOrderTest, TheDriveIsOpenedForWritingBeforeTheSizesAreJudged)
{
    SHOWS(KkCreatePartition, KK_STATUS_INVALID_PARAMETER,
          "a region in use is refused after the drive was opened for writing");
    SHOWS(KkCreatePartition, KK_STATUS_BUFFER_TOO_SMALL,
          "a region without room is refused after the drive was opened for writing");

    AddDisk(kSmallGpt, {{8 * kMiB, 8 * kMiB}});
    for (const Place& region : {Place{0, 65536}, Place{8 * kMiB, 8 * kMiB}}) {
        ASSERT_NE(Create(region.start, region.length), 0);

        EXPECT_THAT(Steps(), ElementsAre("open drive 0", "geometry of drive 0", "layout of drive 0", "close drive 0",
                                         "open drive 0 for writing", "close drive 0"));
    }
}

TEST_F(CreatePartitionOrderTest, AFailedEditIsNotFollowedByAnotherLook)
{
    SHOWS(KkCreatePartition, 0xC0000185,
          "a failing write is passed on; neither flushed nor looked at again, and no start is told");

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
    SHOWS(KkCreatePartition, KK_STATUS_SUCCESS, "whether the system looked at the table again does not matter");

    AddDisk(kSmallGpt, {});
    Refuse(0x70140, 0xC00000BB);

    EXPECT_EQ(Create(4 * kMiB, 8 * kMiB), 0);

    EXPECT_EQ(created, 4 * kMiB);
    EXPECT_TRUE(Partitions().empty()) << "the driver has not heard of it";
    EXPECT_EQ(ReadSlots(TheDisk(), kSmallGpt).size(), 1u);
}

TEST_F(CreatePartitionOrderTest, NoVolumeIsTouched)
{
    SHOWS(KkCreatePartition, KK_STATUS_SUCCESS, "no volume is touched");

    AddDisk(kSmallGpt, {{8 * kMiB, 8 * kMiB}});

    ASSERT_EQ(Create(20 * kMiB, 8 * kMiB), 0);

    EXPECT_EQ(machine.journal.Count({.object = "HarddiskVolume"}), 0u);
}

}  // namespace
