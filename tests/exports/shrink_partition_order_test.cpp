#include "exports/support/partition_edit_test.h"

namespace {

using ::testing::Contains;
using ::testing::ElementsAreArray;
using ::testing::Not;

using StepList = std::vector<std::string>;

class ShrinkPartitionOrderTest : public PartitionEditTest {
protected:
    ShrinkPartitionOrderTest() { AddDisk(kSmallMbr, {{kMiB, 16 * kMiB}, {32 * kMiB, kMiB}}); }

    static StepList Joined(const std::vector<StepList>& parts)
    {
        StepList steps;
        for (const StepList& part : parts) {
            steps.insert(steps.end(), part.begin(), part.end());
        }
        return steps;
    }

    const StepList layout = {"open drive 0", "geometry of drive 0", "layout of drive 0", "close drive 0"};
    const StepList lookup = {"open volume 1", "close volume 1"};
    const StepList letter = {"open mounts", "query mounts", "close mounts"};
    const StepList shrink = {"open volume 1 for writing", "shrink volume 1", "shrink volume 1", "close volume 1"};
    const StepList edit = {"open drive 0 for writing", "read drive 0 at 0", "write drive 0 at 0", "flush drive 0",
                           "refresh drive 0",          "close drive 0"};
};

TEST_F(ShrinkPartitionOrderTest, TheFileSystemShrinksBeforeThePartition)
{
    SHOWS(KkShrinkPartition, KK_STATUS_SUCCESS,
          "the file system shrinks before the partition, and the layout is looked at again between");

    ASSERT_EQ(Shrink(kMiB, 8 * kMiB), 0);

    EXPECT_THAT(Steps(), ElementsAreArray(Joined({layout, lookup, letter, shrink, layout, edit})));
}

TEST_F(ShrinkPartitionOrderTest, AFailingPreparationEndsTheCall)
{
    SHOWS(KkShrinkPartition, 0xC0000010, "the file system's refusal to prepare ends the call before anything changed");

    machine.faults.Fail({.code = 0x901B0}, 1, 0xC0000010);

    EXPECT_EQ(Shrink(kMiB, 8 * kMiB), Status(0xC0000010));

    const StepList refused = {"open volume 1 for writing", "shrink volume 1", "close volume 1"};
    EXPECT_THAT(Steps(), ElementsAreArray(Joined({layout, lookup, letter, refused})));
}

TEST_F(ShrinkPartitionOrderTest, AFailingCommitmentEndsTheCallWithoutARequestToAbort)
{
    SHOWS(KkShrinkPartition, 0xC0000021,
          "the file system's refusal to commit ends the call; the partition keeps its size");

    machine.faults.Fail({.code = 0x901B0}, 2, 0xC0000021);

    EXPECT_EQ(Shrink(kMiB, 8 * kMiB), Status(0xC0000021));

    EXPECT_THAT(Steps(), ElementsAreArray(Joined({layout, lookup, letter, shrink})));
    EXPECT_EQ(Partitions()[0].length, 16 * kMiB);
}

TEST_F(ShrinkPartitionOrderTest, AVolumeThatDoesNotOpenForWritingEndsTheCall)
{
    SHOWS(KkShrinkPartition, 0xC0000022, "the volume does not open for writing; nothing changes");

    machine.faults.Fail({.kind = machine::CallKind::CreateFile, .object = "HarddiskVolume1"}, 2, 0xC0000022);

    EXPECT_EQ(Shrink(kMiB, 8 * kMiB), Status(0xC0000022));

    EXPECT_THAT(Steps(), ElementsAreArray(Joined({layout, lookup, letter, {"open volume 1 for writing"}})));
}

TEST_F(ShrinkPartitionOrderTest, ALetterThatCannotBeLearntIsNoObstacle)
{
    SHOWS(KkShrinkPartition, KK_STATUS_SUCCESS, "a letter that cannot be learnt is no obstacle");

    Refuse(0x6D0008, 0xC0000022);

    EXPECT_EQ(Shrink(kMiB, 8 * kMiB), 0);

    EXPECT_EQ(Partitions()[0].length, 8 * kMiB);
}

TEST_F(ShrinkPartitionOrderTest, ADriveThatDoesNotOpenForWritingLeavesTheTable)
{
    SHOWS(KkShrinkPartition, 0xC0000022,
          "the drive does not open for writing; the file system is shrunk and the table as it was");

    machine.faults.Fail({.kind = machine::CallKind::CreateFile, .object = "PhysicalDrive0"}, 3, 0xC0000022);

    EXPECT_EQ(Shrink(kMiB, 8 * kMiB), Status(0xC0000022));

    EXPECT_THAT(Steps(),
                ElementsAreArray(Joined({layout, lookup, letter, shrink, layout, {"open drive 0 for writing"}})));
    EXPECT_EQ(ReadSlots(TheDisk(), kSmallMbr)[0]->length, 16 * kMiB);
}

TEST_F(ShrinkPartitionOrderTest, AFailingEditIsNotFollowedByAnotherLook)
{
    SHOWS(KkShrinkPartition, 0xC0000185,
          "a failing write of the table is passed on, and the system not told to look again");
    SHOWS(KkShrinkPartition, KK_STATUS_SUCCESS, "after a failed edit of the table the call can be made again");

    machine.faults.Fail({.kind = machine::CallKind::WriteFile}, 1, 0xC0000185);

    EXPECT_EQ(Shrink(kMiB, 8 * kMiB), Status(0xC0000185));

    EXPECT_THAT(Steps(), Not(Contains("refresh drive 0")));
    EXPECT_EQ(Steps().back(), "close drive 0");
    EXPECT_EQ(Shrink(kMiB, 8 * kMiB), 0) << "it can be made again";
    EXPECT_EQ(Partitions()[0].length, 8 * kMiB);
}

TEST_F(ShrinkPartitionOrderTest, NothingIsLocked)
{
    SHOWS(KkShrinkPartition, KK_STATUS_SUCCESS, "nothing is locked or dismounted");

    ASSERT_EQ(Shrink(kMiB, 8 * kMiB), 0);

    EXPECT_THAT(Steps(), Not(Contains("lock volume 1")));
    EXPECT_THAT(Steps(), Not(Contains("dismount volume 1")));
}

}  // namespace
