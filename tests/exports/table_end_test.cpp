#include "exports/support/partition_edit_test.h"

// Tables that end before their end: the disk reads or writes less than it is asked to, and then nothing.

namespace {

using machine::CallKind;

class TableEndTest : public PartitionEditTest {
protected:
    /// The transfers that an edit makes of both copies of a GPT, or of an MBR.
    static uint64_t Reads(const DiskKind& kind) { return kind.table == TableKind::Gpt ? 5 : 1; }
    static uint64_t Writes(const DiskKind& kind) { return kind.table == TableKind::Gpt ? 4 : 1; }

    /// Makes an edit of a disk of each kind with each of these transfers moving nothing.
    void ExpectEachEnds(CallKind transfer, uint64_t (*count)(const DiskKind&), int32_t status)
    {
        const std::pair<std::string, std::function<int32_t()>> edits[] = {
            {"create", [this] { return Create(20 * kMiB, 4 * kMiB); }},
            {"delete", [this] { return Delete(8 * kMiB); }},
            {"shrink", [this] { return Shrink(8 * kMiB, kMiB); }},
        };
        for (const DiskKind& kind : kDiskKinds) {
            for (const auto& [name, edit] : edits) {
                for (uint64_t nth = 1; nth <= count(kind); ++nth) {
                    SCOPED_TRACE(testing::Message() << name << " on " << kind << ", transfer " << nth);
                    AddDisk(kind, {{kMiB, 4 * kMiB}, {8 * kMiB, 4 * kMiB}});
                    const std::vector<Place> before = Partitions();
                    machine.faults.Clear();
                    machine.faults.Shorten({.kind = transfer, .object = "PhysicalDrive0"}, nth, 0);

                    EXPECT_EQ(edit(), status);

                    EXPECT_EQ(created, kNotWritten);
                    EXPECT_EQ(Partitions(), before) << "the system has not been told to look again";
                }
            }
        }
    }
};

TEST_F(TableEndTest, AReadThatGetsNothingIsTheEndOfTheFile)
{
    SHOWS(KkCreatePartition, KK_STATUS_END_OF_FILE, "the disk ends inside its table, found by any read of a copy");
    SHOWS(KkDeletePartition, KK_STATUS_END_OF_FILE, "the disk ends inside its table, found by any read of a copy");
    SHOWS(KkShrinkPartition, KK_STATUS_END_OF_FILE, "the disk ends inside its table, found by any read of a copy");

    ExpectEachEnds(CallKind::ReadFile, Reads, KK_STATUS_END_OF_FILE);
}

TEST_F(TableEndTest, AWriteThatPutsNothingIsUnsuccessful)
{
    SHOWS(KkCreatePartition, KK_STATUS_UNSUCCESSFUL, "the disk ends inside its table, found by any write of a copy");
    SHOWS(KkDeletePartition, KK_STATUS_UNSUCCESSFUL, "the disk ends inside its table, found by any write of a copy");
    SHOWS(KkShrinkPartition, KK_STATUS_UNSUCCESSFUL, "the disk ends inside its table, found by any write of a copy");

    ExpectEachEnds(CallKind::WriteFile, Writes, KK_STATUS_UNSUCCESSFUL);
}

}  // namespace
