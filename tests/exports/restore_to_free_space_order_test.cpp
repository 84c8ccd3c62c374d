#include <algorithm>

#include "exports/support/restore_to_free_space_test.h"

// In which order KkRestoreToFreeSpace does things, and what it leaves when one of them fails.

namespace {

using machine::CallKind;
using ::testing::ElementsAre;

class RestoreToFreeSpaceOrderTest : public RestoreToFreeSpaceTest {};

TEST_F(RestoreToFreeSpaceOrderTest, TheSystemLearnsOfThePartitionWhenItIsFilled)
{
    SHOWS(KkRestoreToFreeSpace, KK_STATUS_SUCCESS,
          "the system is told of the partition when it is filled, after the table was edited copy by copy");

    ASSERT_EQ(Restore(8 * kMiB, 16 * kMiB), 0);

    const std::string backupArray = std::to_string(kSize - 512 - 16384) + "+16384";
    const std::string backupHeader = std::to_string(kSize - 512) + "+512";
    EXPECT_THAT(Steps(),
                ElementsAre("open image", "read image", "open drive 0", "geometry of drive 0", "layout of drive 0",
                            "close drive 0", "open drive 0 for writing", "read drive 0 at 512+512",
                            "read drive 0 at 512+512", "read drive 0 at 512+512", "read drive 0 at 1024+16384",
                            "write drive 0 at 1024+16384", "write drive 0 at 512+512",
                            "read drive 0 at " + backupHeader, "read drive 0 at " + backupArray,
                            "write drive 0 at " + backupArray, "write drive 0 at " + backupHeader, "flush drive 0",
                            "read image", "write drive 0 at 8388608+3146240", "flush drive 0", "refresh drive 0",
                            "close drive 0", "close image"));
}

TEST_F(RestoreToFreeSpaceOrderTest, AFailingCopyLeavesTheEntryAndTellsNobody)
{
    SHOWS(KkRestoreToFreeSpace, 0xC0000185,
          "a failing write of data leaves the entry in the table, and the system is not told");

    // Two arrays and two headers come before the data.
    machine.faults.Fail({.kind = CallKind::WriteFile}, 5, 0xC0000185);

    EXPECT_EQ(Restore(8 * kMiB, 16 * kMiB), Status(0xC0000185));

    EXPECT_EQ(Added(), (Place{8 * kMiB, 16 * kMiB}));
    EXPECT_THAT(DriverKnows(), ElementsAre(kTaken));
    EXPECT_EQ(StepsLike("flush drive 0"), 1u) << "the table's own";
    ExpectOld(8 * kMiB, kLength);
}

TEST_F(RestoreToFreeSpaceOrderTest, ASecondAttemptAddsAnotherEntryOverThatOfTheFirst)
{
    SHOWS(KkRestoreToFreeSpace, KK_STATUS_SUCCESS,
          "made again after a copy that failed, it adds another entry for the same place");

    machine.faults.Fail({.kind = CallKind::WriteFile}, 5, 0xC0000185);
    ASSERT_EQ(Restore(8 * kMiB, 16 * kMiB), Status(0xC0000185));
    machine.faults.Clear();

    EXPECT_EQ(Restore(8 * kMiB, 16 * kMiB), 0);

    constexpr Place place = {8 * kMiB, 16 * kMiB};
    EXPECT_THAT(ReadSlots(Target(), kSmallGpt), ElementsAre(kTaken, place, place));
    ExpectRestored(kSource, place.start, kLength);
}

TEST_F(RestoreToFreeSpaceOrderTest, OnceTheSystemHasLookedAgainTheEntryOfAFailedAttemptCanBeDeleted)
{
    SHOWS(KkRestoreToFreeSpace, KK_STATUS_INVALID_PARAMETER,
          "once the system has looked again, the entry that a failed copy left is in the way");
    SHOWS(KkRestoreToFreeSpace, KK_STATUS_SUCCESS,
          "once the entry that a failed copy left is deleted, there is only one");
    SHOWS(KkDeletePartition, KK_STATUS_SUCCESS, "the entry that a failed copy left is deleted");

    machine.faults.Fail({.kind = CallKind::WriteFile}, 5, 0xC0000185);
    ASSERT_EQ(Restore(8 * kMiB, 16 * kMiB), Status(0xC0000185));
    machine.faults.Clear();
    Target().Rescan();

    EXPECT_EQ(Restore(8 * kMiB, 16 * kMiB), KK_STATUS_INVALID_PARAMETER);
    EXPECT_EQ(api.deletePartition(0, 8 * kMiB), 0);
    EXPECT_EQ(Restore(8 * kMiB, 16 * kMiB), 0);

    EXPECT_EQ(Added(), (Place{8 * kMiB, 16 * kMiB}));
    ExpectRestored(kSource, 8 * kMiB, kLength);
}

TEST_F(RestoreToFreeSpaceOrderTest, AFailingTableEditIsFollowedByNoData)
{
    SHOWS(KkRestoreToFreeSpace, 0xC0000185, "a failing write of the table is followed by no data");

    for (uint64_t nth = 1; nth <= 4; ++nth) {
        AddTarget(kSmallGpt, {kTaken}, kSize);
        machine.faults.Clear();
        machine.faults.Fail({.kind = CallKind::WriteFile}, nth, 0xC0000185);

        EXPECT_EQ(Restore(8 * kMiB, 16 * kMiB), Status(0xC0000185)) << nth;

        ExpectOld(8 * kMiB, kLength);
        EXPECT_EQ(machine.journal.Count({.code = 0x70140}), 0u);
    }
}

TEST_F(RestoreToFreeSpaceOrderTest, WithoutMemoryForTheBufferTheEntryStays)
{
    SHOWS(KkRestoreToFreeSpace, KK_STATUS_NO_MEMORY,
          "no memory for the buffer; the entry stays, and the system is not told");

    machine.heap.SetLimit(4 * kMiB);

    EXPECT_EQ(Restore(8 * kMiB, 16 * kMiB), KK_STATUS_NO_MEMORY);

    EXPECT_EQ(Added(), (Place{8 * kMiB, 16 * kMiB}));
    EXPECT_THAT(DriverKnows(), ElementsAre(kTaken));
}

TEST_F(RestoreToFreeSpaceOrderTest, AFlushOrRefreshThatFailsIsNoFailure)
{
    SHOWS(KkRestoreToFreeSpace, KK_STATUS_SUCCESS, "a flush that fails, or telling the system, does not matter");

    Fail({.kind = CallKind::Flush}, 0xC0000185);
    Fail({.code = 0x70140}, 0xC0000185);

    EXPECT_EQ(Restore(8 * kMiB, 16 * kMiB), 0);

    ExpectRestored(kSource, 8 * kMiB, kLength);
    EXPECT_EQ(machine.journal.Count({.code = 0x70140}), 1u);
}

TEST_F(RestoreToFreeSpaceOrderTest, AChunkOfZerosLeavesWhatTheDiskHeld)
{
    SHOWS(KkRestoreToFreeSpace, KK_STATUS_SUCCESS, "8 MiB of zeros are not written; the disk's old bytes stay there");

    MakeImage(kSmallGpt, {{kTinySource + 12 * kMiB, 512}, {kSource, kTransfer + kMiB}}, 20 * kMiB);
    PutZerosInImage(kSource, kTransfer);

    ASSERT_EQ(Restore(8 * kMiB, 16 * kMiB), 0);

    ExpectOld(8 * kMiB, kTransfer);
    ExpectRestored(kSource + kTransfer, 8 * kMiB + kTransfer, kMiB);
}

TEST_F(RestoreToFreeSpaceOrderTest, OneBufferIsTakenAndGivenBack)
{
    SHOWS(KkRestoreToFreeSpace, KK_STATUS_SUCCESS, "one buffer is taken and freed");

    ASSERT_EQ(Restore(8 * kMiB, 16 * kMiB), 0);

    EXPECT_EQ(std::ranges::count(machine.heap.Sizes(), kTransfer), 1);
    EXPECT_LT(machine.heap.PeakBytes(), kTransfer + 64 * kKiB);
}

TEST_F(RestoreToFreeSpaceOrderTest, SectorsTooSmallForAHeaderAreNotRead)
{
    SHOWS(KkRestoreToFreeSpace, KK_STATUS_REGISTRY_CORRUPT, "sectors too small for a header; the disk is not read");

    machine.OnControl({.object = "PhysicalDrive0", .code = 0x700A0},
                      [](const machine::CallRecord&, const machine::ControlRequest&) {
                          kk::DiskGeometryEx geometry = {};
                          geometry.diskSize = kSize;
                          geometry.bytesPerSector = 32;
                          return std::optional(machine::ControlAnswer{.output = machine::BytesOf(geometry)});
                      });

    ExpectRefused(KK_STATUS_REGISTRY_CORRUPT, 8 * kMiB, 4 * kMiB);

    EXPECT_EQ(StepsLike("read drive"), 0u);
}

}  // namespace
