#include "exports/support/partition_edit_test.h"

// Tables whose headers say what no table should, behind the back of a driver that read them when they were in order.

namespace {

constexpr uint64_t kSectors = (64 << 20) / 512;
constexpr size_t kOtherLba = offsetof(machine::GptHeaderRecord, otherLba);
constexpr size_t kEntriesLba = offsetof(machine::GptHeaderRecord, entriesLba);
constexpr size_t kEntryCount = offsetof(machine::GptHeaderRecord, entryCount);
constexpr size_t kEntryBytes = offsetof(machine::GptHeaderRecord, entryBytes);

/// A field of a header, a wrong value, and the status of whoever reads it.
struct Damage {
    size_t field;
    uint64_t value;
    int32_t status;
};

std::ostream& operator<<(std::ostream& stream, const Damage& damage)
{
    return stream << "field " << damage.field << " is " << damage.value;
}

class HostileGptTest : public PartitionEditTest {
protected:
    machine::Disk& AddGptDisk() { return AddDisk(kSmallGpt, {{kMiB, 4 * kMiB}, {8 * kMiB, 4 * kMiB}}); }

    void Put(uint64_t headerLba, const Damage& damage)
    {
        const size_t width = damage.field == kEntryCount || damage.field == kEntryBytes ? 4 : 8;
        const auto* const bytes = reinterpret_cast<const uint8_t*>(&damage.value);
        TheDisk().WriteBytes(headerLba * 512 + damage.field, std::span(bytes, width));
    }

    /// The three edits, each of which would succeed on the sound disk.
    std::vector<std::pair<std::string, std::function<int32_t()>>> Edits()
    {
        return {{"create", [this] { return Create(20 * kMiB, 4 * kMiB); }},
                {"delete", [this] { return Delete(8 * kMiB); }},
                {"shrink", [this] { return Shrink(8 * kMiB, kMiB); }}};
    }

    /// Each edit of a disk with that damage fails with its status, and has changed no copy or the first one.
    void ExpectEachEditFails(uint64_t headerLba, const Damage& damage, bool firstCopyChanges)
    {
        for (const auto& [name, edit] : Edits()) {
            SCOPED_TRACE(testing::Message() << name << ", header at " << headerLba << ", " << damage);
            AddGptDisk();
            Put(headerLba, damage);
            const std::vector<Place> before = Partitions();

            EXPECT_EQ(edit(), damage.status);

            const std::vector<Place> first = {{1024, 16384}, {512, 512}};
            EXPECT_EQ(written, firstCopyChanges ? first : std::vector<Place>{});
            EXPECT_EQ(created, kNotWritten);
            EXPECT_EQ(Partitions(), before);
            EXPECT_EQ(machine.journal.Count({.kind = machine::CallKind::Flush}), 0u);
            EXPECT_EQ(machine.journal.Count({.code = 0x70140}), 0u);
        }
    }
};

constexpr Damage kDamages[] = {
    {0, 0, KK_STATUS_REGISTRY_CORRUPT},  // the signature
    {0, 0x5452415020494645 ^ (uint64_t{1} << 63), KK_STATUS_REGISTRY_CORRUPT},
    {kEntryCount, 0, KK_STATUS_REGISTRY_CORRUPT},
    {kEntryCount, 4097, KK_STATUS_REGISTRY_CORRUPT},
    {kEntryCount, UINT32_MAX, KK_STATUS_REGISTRY_CORRUPT},
    {kEntryBytes, 0, KK_STATUS_REGISTRY_CORRUPT},
    {kEntryBytes, 127, KK_STATUS_REGISTRY_CORRUPT},
    {kEntryBytes, uint64_t{1} << 31, KK_STATUS_NO_MEMORY},
    {kEntryBytes, UINT32_MAX, KK_STATUS_NO_MEMORY},
    {kEntryBytes, 130, KK_STATUS_INVALID_PARAMETER},  // no whole number of sectors
    {kEntryCount, 3, KK_STATUS_INVALID_PARAMETER},
    {kEntriesLba, kSectors, Status(0xC0000015)},
    {kEntriesLba, kSectors - 1, Status(0xC0000015)},
    {kEntriesLba, uint64_t{1} << 54, KK_STATUS_INVALID_PARAMETER},  // byte 2^63
    {kEntriesLba, uint64_t{1} << 55, KK_STATUS_REGISTRY_CORRUPT},   // byte 2^64
    {kEntriesLba, (uint64_t{1} << 55) + 2, KK_STATUS_REGISTRY_CORRUPT},
    {kEntriesLba, uint64_t{1} << 63, KK_STATUS_REGISTRY_CORRUPT},
    {kEntriesLba, UINT64_MAX, KK_STATUS_REGISTRY_CORRUPT},
};

TEST_F(HostileGptTest, ADamagedFirstHeaderLeavesTheDiskAsItIs)
{
    SHOWS(KkCreatePartition, KK_STATUS_REGISTRY_CORRUPT,
          "a damaged first header leaves the disk as it is: no signature, wrong counts and sizes, wrong places");
    SHOWS(KkCreatePartition, KK_STATUS_NO_MEMORY,
          "a table that claims to be 4 GiB or larger, in the first header: nothing changes");
    SHOWS(KkCreatePartition, KK_STATUS_INVALID_PARAMETER,
          "entries that fill no whole number of sectors, in the first header: nothing changes");
    SHOWS(KkCreatePartition, 0xC0000015,
          "a first copy that would lie behind the disk's end: the disk's refusal is passed on");
    SHOWS(KkDeletePartition, KK_STATUS_REGISTRY_CORRUPT, "a damaged first header leaves the disk as it is");
    SHOWS(KkDeletePartition, KK_STATUS_NO_MEMORY,
          "a table that claims to be 4 GiB or larger, in the first header: nothing changes");
    SHOWS(KkShrinkPartition, KK_STATUS_REGISTRY_CORRUPT, "a damaged first header leaves the table as it is");
    SHOWS(KkShrinkPartition, KK_STATUS_NO_MEMORY,
          "a table that claims to be 4 GiB or larger, in the first header: the table stays as it is");

    for (const Damage& damage : kDamages) {
        ExpectEachEditFails(1, damage, false);
    }
}

TEST_F(HostileGptTest, ADamagedSecondHeaderIsFoundAfterTheFirstCopyChanged)
{
    SHOWS(KkCreatePartition, KK_STATUS_REGISTRY_CORRUPT,
          "a damaged second header is found after the first copy changed");
    SHOWS(KkCreatePartition, KK_STATUS_NO_MEMORY,
          "a table that claims to be 4 GiB or larger, in the second header: the first copy has changed");
    SHOWS(KkCreatePartition, KK_STATUS_INVALID_PARAMETER,
          "entries that fill no whole number of sectors, in the second header: the first copy has changed");
    SHOWS(KkCreatePartition, 0xC0000015,
          "a second array that would lie behind the disk's end: the first copy has changed");
    SHOWS(KkDeletePartition, KK_STATUS_REGISTRY_CORRUPT,
          "a damaged second header is found after the first copy changed");
    SHOWS(KkDeletePartition, KK_STATUS_NO_MEMORY,
          "a table that claims to be 4 GiB or larger, in the second header: the first copy has changed");
    SHOWS(KkShrinkPartition, KK_STATUS_REGISTRY_CORRUPT,
          "a damaged second header is found after the first copy changed");
    SHOWS(KkShrinkPartition, KK_STATUS_NO_MEMORY,
          "a table that claims to be 4 GiB or larger, in the second header: the first copy has changed");

    for (const Damage& damage : kDamages) {
        ExpectEachEditFails(kSectors - 1, damage, true);
    }
}

TEST_F(HostileGptTest, ASecondHeaderWhereNoneCanBe)
{
    SHOWS(KkCreatePartition, KK_STATUS_REGISTRY_CORRUPT, "a second copy where none can be: the first copy has changed");
    SHOWS(KkCreatePartition, 0xC0000015, "a second copy behind the disk's end: the first copy has changed");
    SHOWS(KkCreatePartition, KK_STATUS_INVALID_PARAMETER,
          "a second copy at a place that no device has: the first copy has changed");
    SHOWS(KkDeletePartition, KK_STATUS_REGISTRY_CORRUPT, "a second copy where none can be: the first copy has changed");
    SHOWS(KkShrinkPartition, KK_STATUS_REGISTRY_CORRUPT, "a second copy where none can be: the first copy has changed");

    const Damage damages[] = {
        {kOtherLba, 0, KK_STATUS_REGISTRY_CORRUPT},
        {kOtherLba, 2, KK_STATUS_REGISTRY_CORRUPT},
        {kOtherLba, kSectors, Status(0xC0000015)},
        {kOtherLba, (uint64_t{1} << 54) - 2, Status(0xC0000015)},
        {kOtherLba, (uint64_t{1} << 54) - 1, KK_STATUS_INVALID_PARAMETER},  // ends at byte 2^63
        {kOtherLba, uint64_t{1} << 54, KK_STATUS_INVALID_PARAMETER},
        {kOtherLba, uint64_t{1} << 55, KK_STATUS_REGISTRY_CORRUPT},
        {kOtherLba, (uint64_t{1} << 55) + 1, KK_STATUS_REGISTRY_CORRUPT},
        {kOtherLba, uint64_t{1} << 63, KK_STATUS_REGISTRY_CORRUPT},
        {kOtherLba, UINT64_MAX, KK_STATUS_REGISTRY_CORRUPT},
    };
    for (const Damage& damage : damages) {
        ExpectEachEditFails(1, damage, true);
    }
}

TEST_F(HostileGptTest, AFirstHeaderThatNamesItselfAsTheSecondIsEditedTwice)
{
    SHOWS(KkCreatePartition, KK_STATUS_SUCCESS, "a first header that names itself as the second is edited twice");
    SHOWS(KkDeletePartition, KK_STATUS_INVALID_PARAMETER,
          "a first header that names itself as the second: the second time the entry is gone");

    AddGptDisk();
    Put(1, {kOtherLba, 1, 0});

    EXPECT_EQ(Create(20 * kMiB, 4 * kMiB), 0);

    const GptOnDisk table = ReadGpt(TheDisk(), 1);
    EXPECT_TRUE(table.sound);
    EXPECT_EQ(table.Slots(512)[2], (Place{20 * kMiB, 4 * kMiB}));
    EXPECT_EQ(table.Slots(512)[3], (Place{20 * kMiB, 4 * kMiB}));
    EXPECT_EQ(Delete(8 * kMiB), KK_STATUS_INVALID_PARAMETER) << "the second time it is gone already";
    EXPECT_EQ(ReadGpt(TheDisk(), 1).Slots(512)[1], std::nullopt);
}

TEST_F(HostileGptTest, AMissingMbrDoesNotMatterToAGpt)
{
    SHOWS(KkCreatePartition, KK_STATUS_SUCCESS, "a GPT is edited without its protective MBR");

    AddGptDisk().WriteBytes(0, std::vector<uint8_t>(512));

    EXPECT_EQ(Create(20 * kMiB, 4 * kMiB), 0);
}

TEST_F(HostileGptTest, ATableOfFewerOrLongerEntriesIsEditedAsItSays)
{
    SHOWS(KkCreatePartition, KK_STATUS_SUCCESS,
          "tables with more, fewer or longer entries than usual are edited as they say");
    SHOWS(KkDeletePartition, KK_STATUS_SUCCESS,
          "tables with fewer and longer entries than usual are edited as they say");

    AddBareDisk().Gpt({.partitions = {{kMiB, 4 * kMiB}}, .entryCount = 4096});
    EXPECT_EQ(Create(8 * kMiB, 4 * kMiB), 0);
    EXPECT_EQ(Partitions().size(), 2u);

    AddBareDisk().Gpt({.partitions = {{kMiB, 4 * kMiB}}, .entryCount = 32, .entryBytes = 512});
    EXPECT_EQ(Create(8 * kMiB, 4 * kMiB), 0);
    EXPECT_EQ(Delete(kMiB), 0);
    EXPECT_EQ(Partitions(), (std::vector<Place>{{8 * kMiB, 4 * kMiB}}));
}

TEST_F(HostileGptTest, ChecksumsThatAreWrongBeforeAreRightAfterwards)
{
    SHOWS(KkCreatePartition, KK_STATUS_SUCCESS,
          "wrong checksums do not keep a table from being edited, and are right afterwards");

    AddGptDisk().FlipBit(512 + 16).FlipBit(512 + 88).FlipBit((kSectors - 1) * 512 + 16);

    EXPECT_EQ(Create(20 * kMiB, 4 * kMiB), 0);

    EXPECT_EQ(ReadSlots(TheDisk(), kSmallGpt).size(), 3u);
}

TEST_F(HostileGptTest, NothingIsWrittenOutsideTheCopiesWhateverTheArraysPlace)
{
    SHOWS(KkCreatePartition, "whatever places a header names, nothing outside the two copies is written");
    SHOWS(KkDeletePartition, "whatever places a header names, nothing outside the two copies is written");
    SHOWS(KkShrinkPartition, "whatever places a header names, nothing outside the two copies is written");

    // The array begins at the MBR or at the header itself: no table of any sense, and its own places all the same.
    for (const uint64_t lba : {uint64_t{0}, uint64_t{1}}) {
        for (const auto& [name, edit] : Edits()) {
            AddGptDisk();
            Put(1, {kEntriesLba, lba, 0});
            const DiskBytes before(TheDisk());

            static_cast<void>(edit());

            before.ExpectUnchangedBut({{0, 34 * 512}, {(kSectors - 33) * 512, 33 * 512}});
        }
    }
}

TEST_F(HostileGptTest, AnMbrWithoutItsMarkIsNotEdited)
{
    SHOWS(KkCreatePartition, KK_STATUS_REGISTRY_CORRUPT, "an MBR without its mark is not edited");
    SHOWS(KkDeletePartition, KK_STATUS_REGISTRY_CORRUPT, "an MBR without its mark is not edited");
    SHOWS(KkShrinkPartition, KK_STATUS_REGISTRY_CORRUPT, "an MBR without its mark is not edited");

    for (const DiskKind& kind : {kSmallMbr, kLargeMbr}) {
        for (const auto& [name, edit] : Edits()) {
            for (const uint64_t byte : {uint64_t{510}, uint64_t{511}}) {
                AddDisk(kind, {{kMiB, 4 * kMiB}, {8 * kMiB, 4 * kMiB}}).FlipBit(byte);

                EXPECT_EQ(edit(), KK_STATUS_REGISTRY_CORRUPT) << name << ", " << kind;

                EXPECT_TRUE(written.empty());
            }
        }
    }
}

TEST_F(HostileGptTest, APartitionThatTheTableDoesNotHoldAnyMoreIsNotFoundThere)
{
    SHOWS(KkDeletePartition, KK_STATUS_INVALID_PARAMETER,
          "the system still tells of a partition that the table does not hold any more");
    SHOWS(KkShrinkPartition, KK_STATUS_INVALID_PARAMETER,
          "the table does not hold the partition any more, found after the file system was shrunk");

    for (const DiskKind& kind : kDiskKinds) {
        AddDisk(kind, {{kMiB, 4 * kMiB}, {8 * kMiB, 4 * kMiB}});
        Refuse(0x70140, 0xC00000BB);
        ASSERT_EQ(Delete(8 * kMiB), 0) << kind;

        EXPECT_EQ(Delete(8 * kMiB), KK_STATUS_INVALID_PARAMETER) << "the driver still tells of it";
        EXPECT_TRUE(written.empty());
        EXPECT_EQ(Shrink(8 * kMiB, kMiB), KK_STATUS_INVALID_PARAMETER) << kind;
        EXPECT_TRUE(written.empty());
        machine.faults.Clear();
    }
}

}  // namespace
