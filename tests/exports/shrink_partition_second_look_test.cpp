#include "exports/support/partition_edit_test.h"

// What the layout says after the file system was shrunk decides whether the table is edited.

namespace {

constexpr uint64_t kStart = 1 << 20;

class ShrinkPartitionSecondLookTest : public PartitionEditTest {
protected:
    /// Has the second layout request of a call answer with this.
    void AnswerTheSecondTime(std::optional<machine::ControlAnswer> answer)
    {
        machine.OnControl({.object = "PhysicalDrive0", .code = 0x70050},
                          [answer, calls = 0](const machine::CallRecord&, const machine::ControlRequest&) mutable {
                              return ++calls == 2 ? answer : std::nullopt;
                          });
    }
    static LayoutAnswer LayoutWith(uint64_t start, uint64_t length, uint32_t kind = 0)
    {
        LayoutAnswer layout(static_cast<kk::WirePartitionStyle>(kind));
        layout.Add(1, static_cast<int64_t>(start), static_cast<int64_t>(length)).mbr.partitionType = 7;
        return layout;
    }
    /// Whether a shrink from 16 to 8 MiB edits the table when the partition is `length` long by then.
    bool EditsWhenItIs(uint64_t length)
    {
        AddDisk(kSmallMbr, {{kStart, 16 * kMiB}});
        AnswerTheSecondTime(machine::ControlAnswer{.output = LayoutWith(kStart, length).Bytes()});
        EXPECT_EQ(Shrink(kStart, 8 * kMiB), 0);
        const bool edited = machine.journal.Count({.kind = machine::CallKind::WriteFile}) != 0;
        EXPECT_EQ(ReadSlots(TheDisk(), kSmallMbr)[0]->length, edited ? 8 * kMiB : 16 * kMiB);
        EXPECT_EQ(machine.journal.Count({.code = 0x70140}), edited ? 1u : 0u);
        return edited;
    }
};

TEST_F(ShrinkPartitionSecondLookTest, ATableThatIsNoMoreThanOneMiBTooLongIsLeftAlone)
{
    SHOWS(KkShrinkPartition, KK_STATUS_SUCCESS,
          "a partition no more than 1 MiB too long is left as it is in the table");

    EXPECT_FALSE(EditsWhenItIs(4 * kMiB));
    EXPECT_FALSE(EditsWhenItIs(8 * kMiB));
    EXPECT_FALSE(EditsWhenItIs(9 * kMiB));
    EXPECT_TRUE(EditsWhenItIs(9 * kMiB + 1));
    EXPECT_TRUE(EditsWhenItIs(16 * kMiB));
}

TEST_F(ShrinkPartitionSecondLookTest, LengthsThatOnlyLieAreTooLong)
{
    SHOWS(KkShrinkPartition, KK_STATUS_SUCCESS,
          "nonsensical lengths in the second look are too long, so the table is edited");

    EXPECT_TRUE(EditsWhenItIs(UINT64_MAX));
    EXPECT_TRUE(EditsWhenItIs(uint64_t{1} << 63));
    EXPECT_FALSE(EditsWhenItIs(0));
}

TEST_F(ShrinkPartitionSecondLookTest, AShrinkByOneMiBChangesTheFileSystemOnly)
{
    SHOWS(KkShrinkPartition, KK_STATUS_SUCCESS, "a shrink by 1 MiB changes the file system only");

    for (const DiskKind& kind : kDiskKinds) {
        AddDisk(kind, {{kStart, 16 * kMiB}});
        const DiskBytes before(TheDisk());

        EXPECT_EQ(Shrink(kStart, 15 * kMiB), 0) << kind;

        EXPECT_EQ(machine.journal.Count({.code = 0x901B0}), 2u);
        EXPECT_EQ(Partitions(), (std::vector<Place>{{kStart, 16 * kMiB}}));
        before.ExpectUnchanged();
        EXPECT_EQ(Shrink(kStart, 14 * kMiB), 0) << kind;
        EXPECT_EQ(Partitions(), (std::vector<Place>{{kStart, 14 * kMiB}}));
    }
}

TEST_F(ShrinkPartitionSecondLookTest, ALookThatFailsMeansThatTheTableIsEdited)
{
    SHOWS(KkShrinkPartition, KK_STATUS_SUCCESS, "a second look that fails means that the table is edited");

    AddDisk(kSmallMbr, {{kStart, 16 * kMiB}});
    machine.faults.Fail({.kind = machine::CallKind::CreateFile, .object = "PhysicalDrive0"}, 2, 0xC0000022);

    EXPECT_EQ(Shrink(kStart, 15 * kMiB), 0);

    EXPECT_EQ(Partitions(), (std::vector<Place>{{kStart, 15 * kMiB}})) << "even for one MiB";
}

TEST_F(ShrinkPartitionSecondLookTest, APartitionThatIsNotSeenAnyMoreMeansThatTheTableIsEdited)
{
    SHOWS(KkShrinkPartition, KK_STATUS_SUCCESS,
          "a partition that is not seen in the second look is edited all the same");

    for (const uint64_t elsewhere : {kStart - 512, kStart + 512, uint64_t{0}}) {
        AddDisk(kSmallMbr, {{kStart, 16 * kMiB}});
        AnswerTheSecondTime(machine::ControlAnswer{.output = LayoutWith(elsewhere, kMiB).Bytes()});

        EXPECT_EQ(Shrink(kStart, 8 * kMiB), 0);

        EXPECT_EQ(Partitions(), (std::vector<Place>{{kStart, 8 * kMiB}}));
    }
}

TEST_F(ShrinkPartitionSecondLookTest, TheEditGoesByTheFirstLooksStyle)
{
    SHOWS(KkShrinkPartition, KK_STATUS_SUCCESS, "the kind of table is that of the first look");

    AddDisk(kSmallMbr, {{kStart, 16 * kMiB}});
    for (const auto style : {kk::WirePartitionStyle::Gpt, kk::WirePartitionStyle::Raw}) {
        LayoutAnswer lie(style);
        AnswerTheSecondTime(machine::ControlAnswer{.output = lie.Bytes()});
    }

    EXPECT_EQ(Shrink(kStart, 8 * kMiB), 0);

    EXPECT_EQ(ReadSlots(TheDisk(), kSmallMbr)[0]->length, 8 * kMiB);
}

TEST_F(ShrinkPartitionSecondLookTest, TheEditGoesByTheFirstLooksSectorSize)
{
    SHOWS(KkShrinkPartition, KK_STATUS_SUCCESS, "the sector size is that of the first look");

    AddDisk(kLargeGpt, {{kStart, 16 * kMiB}});
    kk::DiskGeometryEx lie = {};
    lie.bytesPerSector = 512;
    lie.diskSize = kDiskSize;
    machine.OnControl(
        {.code = 0x700A0}, [lie, calls = 0](const machine::CallRecord&, const machine::ControlRequest&) mutable {
            return ++calls == 2 ? std::optional(machine::ControlAnswer{.output = machine::BytesOf(lie)}) : std::nullopt;
        });

    EXPECT_EQ(Shrink(kStart, 8 * kMiB), 0);

    EXPECT_EQ(ReadSlots(TheDisk(), kLargeGpt)[0]->length, 8 * kMiB);
}

}  // namespace
