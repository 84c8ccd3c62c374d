#include "exports/support/partition_edit_test.h"

namespace {

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;

class ExtendPartitionOrderTest : public PartitionEditTest {
protected:
    ExtendPartitionOrderTest() { AddDisk(kSmallGpt, {{kMiB, 4 * kMiB}, {16 * kMiB, kMiB}}); }

    const std::vector<std::string> grown = {
        "open drive 0",    "geometry of drive 0", "layout of drive 0", "close drive 0", "open drive 0 for writing",
        "grow in drive 0", "refresh drive 0",     "close drive 0",
    };

    static std::vector<std::string> Joined(std::vector<std::string> one, const std::vector<std::string>& other)
    {
        one.insert(one.end(), other.begin(), other.end());
        return one;
    }
};

TEST_F(ExtendPartitionOrderTest, TheDriveIsClosedBeforeTheVolumeIsLookedFor)
{
    SHOWS(KkExtendPartition, KK_STATUS_SUCCESS,
          "the driver grows the partition and looks again; then the volume is found and extended");

    ASSERT_EQ(Extend(kMiB, 8 * kMiB), 0);

    EXPECT_THAT(Steps(), ElementsAreArray(Joined(grown, {"open volume 1", "close volume 1", "open volume 1 for writing",
                                                         "extend volume 1", "close volume 1"})));
    EXPECT_EQ(machine.journal.Count({.kind = machine::CallKind::WriteFile}), 0u) << "the table is the driver's to edit";
}

TEST_F(ExtendPartitionOrderTest, TheDriveIsOpenedForWritingBeforeTheSizesAreJudged)
{
    SHOWS(KkExtendPartition, KK_STATUS_INVALID_PARAMETER,
          "a size that is not above the present one is refused after the drive was opened for writing");
    SHOWS(KkExtendPartition, KK_STATUS_BUFFER_TOO_SMALL,
          "a size without room is refused after the drive was opened for writing");
    SHOWS(KkExtendPartition, 0xC0000022,
          "the drive does not open for writing, which comes before a size that is refused");

    const std::vector<std::string> refused = {"open drive 0",  "geometry of drive 0",      "layout of drive 0",
                                              "close drive 0", "open drive 0 for writing", "close drive 0"};
    EXPECT_EQ(Extend(kMiB, kMiB), KK_STATUS_INVALID_PARAMETER);
    EXPECT_EQ(Steps(), refused);
    EXPECT_EQ(Extend(kMiB, kDiskSize), KK_STATUS_BUFFER_TOO_SMALL);
    EXPECT_EQ(Steps(), refused);

    machine.faults.Fail({.kind = machine::CallKind::CreateFile}, 2, 0xC0000022);
    EXPECT_EQ(Extend(kMiB, kMiB), Status(0xC0000022));
}

TEST_F(ExtendPartitionOrderTest, ADriverThatRefusesEndsTheCall)
{
    SHOWS(KkExtendPartition, KK_STATUS_NOT_SUPPORTED,
          "the driver's refusal to grow the partition is passed on; nothing changes");

    Refuse(0x7C0D0, 0xC00000BB);

    EXPECT_EQ(Extend(kMiB, 8 * kMiB), Status(0xC00000BB));

    EXPECT_THAT(Steps(), ElementsAre("open drive 0", "geometry of drive 0", "layout of drive 0", "close drive 0",
                                     "open drive 0 for writing", "grow in drive 0", "close drive 0"));
    EXPECT_EQ(Partitions()[0], (Place{kMiB, 4 * kMiB}));
}

TEST_F(ExtendPartitionOrderTest, WhatHappensAfterTheGrowthDoesNotChangeTheResult)
{
    SHOWS(KkExtendPartition, KK_STATUS_SUCCESS,
          "refusals to look again, to tell the volume's place or to extend the file system do not matter");

    const std::vector<uint32_t> laterRequests = {0x70140, 0x560000, 0x900F0};
    uint64_t size = 4 * kMiB;
    for (const uint32_t code : laterRequests) {
        machine.faults.Clear();
        Refuse(code, 0xC0000022);
        size += kMiB;

        EXPECT_EQ(Extend(kMiB, size), 0) << std::hex << code;

        EXPECT_EQ(Partitions()[0], (Place{kMiB, size}));
    }
}

TEST_F(ExtendPartitionOrderTest, AVolumeThatDoesNotOpenForWritingIsLeftAlone)
{
    SHOWS(KkExtendPartition, KK_STATUS_SUCCESS, "a volume that does not open for writing keeps its file system's size");

    machine.faults.Fail({.kind = machine::CallKind::CreateFile, .object = "HarddiskVolume1"}, 2, 0xC0000022);

    EXPECT_EQ(Extend(kMiB, 8 * kMiB), 0);

    EXPECT_THAT(Steps(),
                ElementsAreArray(Joined(grown, {"open volume 1", "close volume 1", "open volume 1 for writing"})));
}

TEST_F(ExtendPartitionOrderTest, APartitionWithoutAVolumeGrows)
{
    SHOWS(KkExtendPartition, KK_STATUS_SUCCESS, "a partition without a volume grows");

    machine.HideVolume(*machine.FindVolume(0, kMiB));

    EXPECT_EQ(Extend(kMiB, 8 * kMiB), 0);

    EXPECT_EQ(Partitions()[0], (Place{kMiB, 8 * kMiB}));
    EXPECT_EQ(machine.journal.Count({.code = 0x900F0}), 0u);
}

TEST_F(ExtendPartitionOrderTest, NothingIsLocked)
{
    SHOWS(KkExtendPartition, KK_STATUS_SUCCESS, "nothing is locked or dismounted");

    ASSERT_EQ(Extend(kMiB, 8 * kMiB), 0);

    EXPECT_EQ(machine.journal.Count({.code = 0x90018}), 0u);
    EXPECT_EQ(machine.journal.Count({.code = 0x90020}), 0u);
}

}  // namespace
