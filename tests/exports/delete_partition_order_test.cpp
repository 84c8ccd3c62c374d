#include "exports/support/partition_edit_test.h"

namespace {

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;

class DeletePartitionOrderTest : public PartitionEditTest {
protected:
    DeletePartitionOrderTest() { AddDisk(kSmallMbr, {{kMiB, 4 * kMiB}, {8 * kMiB, kMiB}}); }

    static std::vector<std::string> Joined(std::vector<std::string> one, const std::vector<std::string>& other)
    {
        one.insert(one.end(), other.begin(), other.end());
        return one;
    }

    const std::vector<std::string> look = {"open drive 0",  "geometry of drive 0", "layout of drive 0",
                                           "close drive 0", "open volume 1",       "close volume 1"};
    const std::vector<std::string> edit = {"open drive 0 for writing", "read drive 0 at 0",
                                           "write drive 0 at 0",       "flush drive 0",
                                           "refresh drive 0",          "close drive 0"};
};

TEST_F(DeletePartitionOrderTest, TheVolumeIsLockedAndDismountedBeforeTheDriveIsOpened)
{
    SHOWS(KkDeletePartition, KK_STATUS_SUCCESS,
          "the volume is locked and dismounted before the drive is opened for writing");

    ASSERT_EQ(Delete(kMiB), 0);

    const std::vector<std::string> dismount = {"open volume 1 for writing", "lock volume 1", "dismount volume 1",
                                               "close volume 1"};
    EXPECT_THAT(Steps(), ElementsAreArray(Joined(Joined(look, dismount), edit)));
}

TEST_F(DeletePartitionOrderTest, ARefusedLockDoesNotKeepItFromTheDismount)
{
    SHOWS(KkDeletePartition, KK_STATUS_SUCCESS, "a refused lock does not keep it from the dismount");

    Refuse(0x90018, 0xC0000022);

    EXPECT_EQ(Delete(kMiB), 0);

    EXPECT_TRUE(machine.journal.Before({.code = 0x90018}, {.code = 0x90020}));
    EXPECT_EQ(machine.journal.Count({.code = 0x9001C}), 0u) << "the lock ends with the handle";
    EXPECT_EQ(Partitions().size(), 1u);
}

TEST_F(DeletePartitionOrderTest, AVolumeInUseBySystemDoesNotSaveItsPartition)
{
    SHOWS(KkDeletePartition, KK_STATUS_SUCCESS, "a volume that the system uses does not save its partition");

    machine.FindVolume(0, kMiB)->SetInUseBySystem();

    EXPECT_EQ(Delete(kMiB), 0);

    EXPECT_EQ(machine.journal.Count({.code = 0x90020}), 1u);
    EXPECT_EQ(Partitions().size(), 1u);
}

TEST_F(DeletePartitionOrderTest, AVolumeThatDoesNotOpenForWritingDoesNotSaveItEither)
{
    SHOWS(KkDeletePartition, KK_STATUS_SUCCESS, "a volume that does not open for writing does not save its partition");

    machine.faults.Fail({.kind = machine::CallKind::CreateFile, .object = "HarddiskVolume1"}, 2, 0xC0000022);

    EXPECT_EQ(Delete(kMiB), 0);

    EXPECT_THAT(Steps(), ElementsAreArray(Joined(Joined(look, {"open volume 1 for writing"}), edit)));
}

TEST_F(DeletePartitionOrderTest, TheVolumeStaysDismountedWhenTheDriveDoesNotOpen)
{
    SHOWS(KkDeletePartition, 0xC0000022, "the drive does not open for writing; the volume was dismounted all the same");

    const std::shared_ptr<machine::Volume> volume = machine.volumes.Find(0, kMiB);
    machine.faults.Fail({.kind = machine::CallKind::CreateFile, .object = "PhysicalDrive0"}, 2, 0xC0000022);

    EXPECT_EQ(Delete(kMiB), Status(0xC0000022));

    EXPECT_EQ(machine.journal.Count({.code = 0x90020}), 1u);
    EXPECT_FALSE(volume->Opens().IsGuarded());
    EXPECT_EQ(Partitions().size(), 2u);
}

TEST_F(DeletePartitionOrderTest, TheVolumeStaysDismountedWhenTheEditFails)
{
    SHOWS(KkDeletePartition, 0xC0000185, "a failing write is passed on; the volume was dismounted all the same");

    const std::shared_ptr<machine::Volume> volume = machine.volumes.Find(0, kMiB);
    machine.faults.Fail({.kind = machine::CallKind::WriteFile}, 1, 0xC0000185);

    EXPECT_EQ(Delete(kMiB), Status(0xC0000185));

    EXPECT_FALSE(volume->Opens().IsGuarded());
    EXPECT_TRUE(volume->IsPresent());
    EXPECT_THAT(Steps(), ::testing::Not(::testing::Contains("refresh drive 0")));
}

TEST_F(DeletePartitionOrderTest, WhetherTheDriverLooksAgainIsNotAsked)
{
    SHOWS(KkDeletePartition, KK_STATUS_SUCCESS, "whether the system looked at the table again does not matter");

    Refuse(0x70140, 0xC00000BB);

    EXPECT_EQ(Delete(kMiB), 0);

    EXPECT_EQ(ReadSlots(TheDisk(), kSmallMbr)[0], std::nullopt);
}

TEST_F(DeletePartitionOrderTest, AGptIsEditedCopyByCopy)
{
    SHOWS(KkDeletePartition, KK_STATUS_SUCCESS,
          "a GPT is edited copy by copy, flushed, and the system told to look again");

    AddDisk(kLargeGpt, {{kMiB, 4 * kMiB}});
    machine.HideVolume(*machine.FindVolume(0, kMiB));

    ASSERT_EQ(Delete(kMiB), 0);

    const std::string array = std::to_string(kDiskSize - 5 * 4096);
    const std::string header = std::to_string(kDiskSize - 4096);
    EXPECT_THAT(Steps(),
                ElementsAre("open drive 0", "geometry of drive 0", "layout of drive 0", "close drive 0",
                            "open drive 0 for writing", "read drive 0 at 4096", "read drive 0 at 4096",
                            "read drive 0 at 8192", "write drive 0 at 8192", "write drive 0 at 4096",
                            "read drive 0 at " + header, "read drive 0 at " + array, "write drive 0 at " + array,
                            "write drive 0 at " + header, "flush drive 0", "refresh drive 0", "close drive 0"));
}

}  // namespace
