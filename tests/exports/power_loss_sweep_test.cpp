#include "exports/support/partition_edit_test.h"
#include "exports/support/power_loss.h"
#include "exports/support/restore_test.h"

// The machine stops after each single write that an edit of a table makes. Writes reach the disk in the order in which
// they are made; the last tests show what that is worth.

namespace {

constexpr uint64_t kMiBytes = 1 << 20;
constexpr uint64_t kSize = 10 * kMiBytes;
constexpr Place kFirst = {kMiBytes, 3 * kMiBytes};
constexpr Place kSecond = {5 * kMiBytes, kMiBytes};
constexpr Place kLast = {8 * kMiBytes, kMiBytes};

/// Partitions full of bytes, not one of them in the first slot, one in the last.
void Fill(machine::Disk& disk, const DiskKind& kind)
{
    const std::vector<uint8_t> pattern = Pattern(kMiBytes, 9);
    for (uint64_t offset = 0; offset < disk.Size(); offset += kMiBytes) {
        disk.WriteBytes(offset, pattern);
    }
    if (kind.table == TableKind::Gpt) {
        disk.Gpt({.partitions = {{.start = kFirst.start, .length = kFirst.length, .name = u"First", .slot = 1},
                                 {.start = kSecond.start, .length = kSecond.length, .attributes = 4, .slot = 5},
                                 {.start = kLast.start, .length = kLast.length, .slot = 127}}});
    } else {
        disk.Mbr({.partitions = {{kFirst.start, kFirst.length, 0x07, true},
                                 {kSecond.start, kSecond.length, 0x0C},
                                 {kLast.start, kLast.length}}});
    }
}

class PowerLossSweepTest : public PartitionEditTest {
protected:
    /// Makes an edit on a full disk of each kind and cuts it off everywhere.
    void ExpectATableWherever(const std::function<int32_t()>& edit)
    {
        for (const DiskKind& kind : kDiskKinds) {
            SCOPED_TRACE(kind);
            CutOffEdit cutOff = Make(kind, edit);
            if (kind.table == TableKind::Gpt) {
                EXPECT_EQ(cutOff.Writes(), 4u);
                cutOff.ExpectAGptInEveryState();
            } else {
                EXPECT_EQ(cutOff.Writes(), 1u);
                cutOff.ExpectAnMbrInEveryState();
            }
        }
    }

    CutOffEdit Make(const DiskKind& kind, const std::function<int32_t()>& edit)
    {
        machine::Disk& disk = AddBareDisk(kSize, kind.sectorSize);
        Fill(disk, kind);
        return {disk, kind, edit};
    }
};

TEST_F(PowerLossSweepTest, ACreatedPartitionIsThereOrIsNot)
{
    SHOWS(KkCreatePartition, KK_STATUS_SUCCESS,
          "cut off after any of its writes, one copy of the table is whole and "
          "tells the old or the new partitions");

    ExpectATableWherever([this] { return Create(6 * kMiB, 2 * kMiB); });
}

TEST_F(PowerLossSweepTest, ADeletedPartitionIsThereOrIsNot)
{
    SHOWS(KkDeletePartition, KK_STATUS_SUCCESS,
          "cut off after any of its writes, one copy of the table is whole and "
          "tells the old or the new partitions");

    ExpectATableWherever([this] { return Delete(kSecond.start); });
}

TEST_F(PowerLossSweepTest, AShrunkPartitionHasTheOldLengthOrTheNewOne)
{
    SHOWS(KkShrinkPartition, KK_STATUS_SUCCESS,
          "cut off after any of its writes, one copy of the table is whole and "
          "tells the old or the new partitions");

    ExpectATableWherever([this] { return Shrink(kFirst.start, kMiB); });
}

TEST_F(PowerLossSweepTest, AnExtendedPartitionHasTheOldLengthOrTheNewOneInItsMbr)
{
    SHOWS(KkExtendPartition, KK_STATUS_SUCCESS,
          "cut off after any write to an MBR disk, the table tells the old or "
          "the new length");

    for (const DiskKind& kind : {kSmallMbr, kLargeMbr}) {
        Make(kind, [this] { return Extend(kFirst.start, 4 * kMiB); }).ExpectAnMbrInEveryState();
    }
}

class RestorePowerLossSweepTest : public RestoreTest {
protected:
    static constexpr uint64_t kLength = 2 * kMiB;

    RestorePowerLossSweepTest() { MakeImage(kSmallGpt, {{kMiB, kLength}}, 4 * kMiB); }

    CutOffEdit Make(const DiskKind& kind)
    {
        machine::Disk& disk = AddTarget(kSize + 4 * kMiB, kind.sectorSize);
        Fill(disk, kind);
        return {disk, kind, [this] { return RestoreToFreeSpace(1, kSize, 3 * kMiB); }, {{kSize, kLength}}};
    }
};

TEST_F(RestorePowerLossSweepTest, FreeSpaceOfAGptBecomesAPartitionBeforeItsBytesAreRestored)
{
    SHOWS(KkRestoreToFreeSpace, KK_STATUS_SUCCESS,
          "cut off after any write to a GPT disk, one copy of the table is "
          "whole, old or new");

    for (const DiskKind& kind : {kSmallGpt, kLargeGpt}) {
        SCOPED_TRACE(kind);
        CutOffEdit cutOff = Make(kind);
        EXPECT_EQ(cutOff.Writes(), 5u);
        cutOff.ExpectAGptInEveryState();
    }
}

TEST_F(RestorePowerLossSweepTest, FreeSpaceOfAnMbrBecomesAPartitionBeforeItsBytesAreRestored)
{
    SHOWS(KkRestoreToFreeSpace, KK_STATUS_SUCCESS,
          "cut off after any write to an MBR disk, the table is the old or "
          "the new one");

    for (const DiskKind& kind : {kSmallMbr, kLargeMbr}) {
        SCOPED_TRACE(kind);
        CutOffEdit cutOff = Make(kind);
        EXPECT_EQ(cutOff.Writes(), 2u);
        cutOff.ExpectAnMbrInEveryState();
    }
}

// Between the two copies there is no flush. A drive that holds writes back and stores them in an order of its own can
// have half of each copy when the power goes.
TEST_F(PowerLossSweepTest, ADriveThatReordersWritesLosesTheTableOnlyWithHalfOfEachCopyStored)
{
    SHOWS(KkDeletePartition, KK_STATUS_SUCCESS,
          "a drive that stores writes in another order loses the table only with "
          "half of each copy stored; one flush follows both");

    CutOffEdit cutOff = Make(kSmallGpt, [this] { return Delete(kSecond.start); });

    for (uint32_t writes = 0; writes < 16; ++writes) {
        const auto isHalf = [writes](uint32_t copy) {
            const uint32_t stored = writes >> 2 * copy & 3;
            return stored == 1 || stored == 2;
        };
        const CopiesTell copies = cutOff.AfterOnly(writes);
        EXPECT_EQ(copies.IsOneIntact(), !isHalf(0) || !isHalf(1)) << writes << ": " << copies;
    }
    EXPECT_EQ(machine.journal.Count({.kind = machine::CallKind::Flush}), 1u);
}

}  // namespace
