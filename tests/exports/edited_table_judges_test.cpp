#include "exports/support/partition_edit_test.h"
#include "exports/support/table_judges.h"

// Tables after each kind of edit, judged by programs that are not ours.

namespace {

class EditedTableJudgesTest : public PartitionEditTest {
protected:
    /// A disk with three partitions, every byte of which but the table's is a pattern.
    machine::Disk& AddFullDisk(const DiskKind& kind)
    {
        machine::Disk& disk = AddDisk(kind, {});
        std::vector<uint8_t> pattern(kMiB);
        for (size_t i = 0; i < pattern.size(); ++i) {
            pattern[i] = static_cast<uint8_t>(1 + i % 251);
        }
        for (uint64_t offset = kMiB; offset < kDiskSize - kMiB; offset += kMiB) {
            disk.WriteBytes(offset, pattern);
        }
        if (kind.table == TableKind::Gpt) {
            return disk.Gpt(
                {.partitions = {{.start = kMiB, .length = 8 * kMiB, .name = u"One"},
                                {.start = 16 * kMiB, .length = 8 * kMiB, .attributes = 4, .slot = 5},
                                {.start = 32 * kMiB, .length = 8 * kMiB, .type = machine::kEfiSystemType}}});
        }
        return disk.Mbr({.partitions = {{kMiB, 8 * kMiB, 0x07, true}, {16 * kMiB, 8 * kMiB, 0x0C}},
                         .logicals = {{32 * kMiB, 8 * kMiB}}});
    }

    /// Does an edit on a full disk of each kind; `slots` are those of the edited entry on a GPT and on an MBR.
    void JudgeAfter(const std::function<int32_t()>& edit, uint32_t gptSlot, uint32_t mbrSlot)
    {
        for (const DiskKind& kind : kDiskKinds) {
            SCOPED_TRACE(kind);
            machine::Disk& disk = AddFullDisk(kind);
            EXPECT_EQ(ComplaintAboutTable(disk, kind), "");
            const DiskBytes before(disk);

            ASSERT_EQ(edit(), 0);

            before.ExpectUnchangedBut(BytesOfEntry(kind, kDiskSize, kind.table == TableKind::Gpt ? gptSlot : mbrSlot));
            EXPECT_EQ(ComplaintAboutTable(disk, kind), "");
        }
    }
};

TEST_F(EditedTableJudgesTest, ACreatedPartition)
{
    SHOWS(KkCreatePartition, KK_STATUS_SUCCESS, "other tools accept the table after a creation, on GPT and MBR disks");

    JudgeAfter([this] { return Create(48 * kMiB, 8 * kMiB); }, 1, 3);
}

TEST_F(EditedTableJudgesTest, ACreatedPartitionThatFillsAGapToTheLastSector)
{
    SHOWS(KkCreatePartition, KK_STATUS_SUCCESS, "other tools accept a partition that fills a gap to its last sector");

    JudgeAfter([this] { return Create(9 * kMiB, 7 * kMiB, 7 * kMiB); }, 1, 3);
}

TEST_F(EditedTableJudgesTest, ADeletedPartition)
{
    SHOWS(KkDeletePartition, KK_STATUS_SUCCESS, "other tools accept the table after a deletion, on GPT and MBR disks");

    JudgeAfter([this] { return Delete(16 * kMiB); }, 5, 1);
}

TEST_F(EditedTableJudgesTest, AnExtendedPartition)
{
    SHOWS(KkExtendPartition, KK_STATUS_SUCCESS,
          "other tools accept the table after an extension, on GPT and MBR disks");

    JudgeAfter([this] { return Extend(16 * kMiB, 12 * kMiB); }, 5, 1);
}

TEST_F(EditedTableJudgesTest, APartitionExtendedAsFarAsItGoes)
{
    SHOWS(KkExtendPartition, KK_STATUS_SUCCESS, "other tools accept a partition extended as far as it goes");

    JudgeAfter([this] { return Extend(kMiB, 0); }, 0, 0);
}

TEST_F(EditedTableJudgesTest, AShrunkPartition)
{
    SHOWS(KkShrinkPartition, KK_STATUS_SUCCESS, "other tools accept the table after a shrink, on GPT and MBR disks");

    JudgeAfter([this] { return Shrink(16 * kMiB, 3 * kMiB); }, 5, 1);
}

TEST_F(EditedTableJudgesTest, TheDiskFilledToItsUsableEnd)
{
    SHOWS(KkCreatePartition, KK_STATUS_SUCCESS,
          "other tools accept a partition that ends where the disk's usable part does");
    SHOWS(KkExtendPartition, KK_STATUS_SUCCESS,
          "other tools accept a partition extended to where the disk's usable part ends");

    for (const DiskKind& kind : kDiskKinds) {
        AddDisk(kind, {});
        const uint64_t reserve = kind.table == TableKind::Gpt ? 34 * kind.sectorSize : 0;

        ASSERT_EQ(Create(0, UINT64_MAX, kDiskSize - reserve - kMiB), 0) << kind;
        EXPECT_EQ(ComplaintAboutTable(TheDisk(), kind), "");

        AddDisk(kind, {{kMiB, kMiB}});
        ASSERT_EQ(Extend(kMiB, 0), 0) << kind;
        EXPECT_EQ(ComplaintAboutTable(TheDisk(), kind), "");
    }
}

TEST_F(EditedTableJudgesTest, ATableFilledToItsLastEntry)
{
    SHOWS(KkCreatePartition, KK_STATUS_SUCCESS, "other tools accept a table whose entries are all in use");
    SHOWS(KkCreatePartition, KK_STATUS_DISK_FULL, "one partition more than the table has entries is refused");

    for (const DiskKind& kind : kDiskKinds) {
        AddDisk(kind, {}, 256 * kMiB);
        const uint64_t entries = kind.table == TableKind::Gpt ? 128 : 4;
        for (uint64_t i = 0; i < entries; ++i) {
            machine.clock.Advance(10'000'000);
            ASSERT_EQ(Create((i + 1) * kMiB, kMiB), 0) << kind << ", " << i;
        }
        EXPECT_EQ(Create(200 * kMiB, kMiB), KK_STATUS_DISK_FULL);

        EXPECT_EQ(ComplaintAboutTable(TheDisk(), kind), "");
        EXPECT_EQ(ReadSlots(TheDisk(), kind).size(), entries);
    }
}

TEST_F(EditedTableJudgesTest, OtherToolsReadWhatWasMeant)
{
    SHOWS(KkCreatePartition, KK_STATUS_SUCCESS,
          "other tools read start, size, type and name of a new partition as they were meant");
    SHOWS(KkDeletePartition, KK_STATUS_SUCCESS, "other tools no longer find a deleted partition");
    SHOWS(KkExtendPartition, KK_STATUS_SUCCESS, "other tools read an extended partition's size as it was meant");

    machine::Disk& disk = AddDisk(kSmallGpt, {{kMiB, 8 * kMiB}, {16 * kMiB, 8 * kMiB}});
    ASSERT_EQ(Create(32 * kMiB, 8 * kMiB, 1000), 0);
    ASSERT_EQ(Delete(kMiB), 0);
    ASSERT_EQ(Extend(16 * kMiB, 9 * kMiB), 0);
    const machine::TemporaryFile file;
    disk.ExportFile(0, kDiskSize, file.Path());

    EXPECT_EQ(Shell("sfdisk -J '" + file.Path() +
                    "' | jq -c '[.partitiontable.partitions[] | [.start, .size, .type, .name]]'"),
              "[[32768,18432,\"EBD0A0A2-B9E5-4433-87C0-68B6B72699C7\",null],"
              "[65536,2,\"EBD0A0A2-B9E5-4433-87C0-68B6B72699C7\",\"Basic data partition\"]]\n");
}

}  // namespace
