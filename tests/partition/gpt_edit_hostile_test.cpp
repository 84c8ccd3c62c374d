// Headers that lie, disks with strange sectors: what is believed, and how far an edit gets.

#include <utility>

#include "partition/gpt_edit_fixture.h"

namespace kk {
namespace {

constexpr uint32_t kCorrupt = 0xC000014C;
constexpr uint32_t kNoMemory = 0xC0000017;
/// With sectors of 512 bytes the first LBA whose byte address does not fit.
constexpr uint64_t kFirstOverflow = uint64_t{1} << 55;

using Trail = std::vector<std::string>;
using Change = std::function<void(machine::GptHeaderRecord&)>;

class GptEditHostileTest : public GptEditTest {
protected:
    /// A disk with a partition at LBA 100 and one changed header.
    void UseChanged(Copy copy, const Change& change)
    {
        UseGpt({100});
        ChangeHeader(copy, change);
    }

    /// The edit fails and writes nothing.
    void ExpectRefused(uint32_t status, const Trail& steps)
    {
        const std::vector<uint8_t> before = WholeDisk();
        EXPECT_EQ(Edit(Resizing(100, 200)), Status(status));
        EXPECT_EQ(Steps(), steps);
        EXPECT_EQ(WholeDisk(), before);
        EXPECT_EQ(number, kUntouched);
    }

    /// The edit fails at the second copy: the first is edited, nothing else is, and nothing is flushed.
    void ExpectHalfDone(uint32_t status, const Trail& lastSteps)
    {
        const std::vector<uint8_t> backup = Bytes(size - 33 * 512, 33 * 512);
        EXPECT_EQ(Edit(Resizing(100, 200)), Status(status));
        Trail expected = {"read 512+512", "read 512+512", "read 1024+16384", "write 1024+16384", "write 512+512"};
        expected.insert(expected.end(), lastSteps.begin(), lastSteps.end());
        EXPECT_EQ(Steps(), expected);
        EXPECT_EQ(Entry(kPrimary, 0).lastLba, 200u);
        ExpectValidChecksums(kPrimary);
        EXPECT_EQ(Bytes(size - 33 * 512, 33 * 512), backup);
        EXPECT_EQ(number, 1u);
    }

    static Change Entries(uint32_t count, uint32_t bytes)
    {
        return [=](machine::GptHeaderRecord& header) {
            header.entryCount = count;
            header.entryBytes = bytes;
        };
    }

    size_t AllocationsOf(uint64_t bytes) const
    {
        const auto all = machine.journal.FindAll({.kind = machine::CallKind::Allocate});
        return static_cast<size_t>(
            std::count_if(all.begin(), all.end(), [bytes](const auto& record) { return record.length == bytes; }));
    }
};

TEST_F(GptEditHostileTest, EveryByteOfTheSignatureCounts)
{
    for (size_t i = 0; i < 8; ++i) {
        UseChanged(kPrimary, [i](auto& header) { header.signature[i] ^= 0x20; });
        ExpectRefused(kCorrupt, {"read 512+512"});

        UseChanged(kBackup, [i](auto& header) { header.signature[i] ^= 0x20; });
        ExpectHalfDone(kCorrupt, {"read 1048064+512"});
    }
}

TEST_F(GptEditHostileTest, ASignatureThatGoesAwayBetweenTheReadingsIsNoticed)
{
    UseGpt({100});
    device->read = [&](uint64_t offset, std::span<uint8_t> into) -> machine::IoResult {
        EXPECT_TRUE(storage->Read(offset, into));
        if (Steps().size() == 1) {
            into[0] = 0;
        }
        return {machine::kSuccess, into.size()};
    };

    ExpectRefused(kCorrupt, {"read 512+512", "read 512+512"});
}

TEST_F(GptEditHostileTest, TheNumberOfEntriesIsAtLeastOne)
{
    UseChanged(kPrimary, Entries(0, 128));
    ExpectRefused(kCorrupt, {"read 512+512", "read 512+512"});

    UseChanged(kBackup, Entries(0, 128));
    ExpectHalfDone(kCorrupt, {"read 1048064+512"});
}

TEST_F(GptEditHostileTest, TheNumberOfEntriesIsAtMost4096)
{
    for (const uint32_t count : {4097u, 0x80000000u, 0xFFFFFFFFu}) {
        UseChanged(kPrimary, Entries(count, 128));
        ExpectRefused(kCorrupt, {"read 512+512", "read 512+512"});

        UseChanged(kBackup, Entries(count, 128));
        ExpectHalfDone(kCorrupt, {"read 1048064+512"});
    }
}

TEST_F(GptEditHostileTest, Of4096EntriesTheLastIsReached)
{
    UseTable({.partitions = {{.start = 1100 * 512, .length = 512, .slot = 4095}}, .entryCount = 4096}, 512, 4 * kMiB);

    EXPECT_EQ(Edit(Resizing(1100, 1200)), KK_STATUS_SUCCESS);
    EXPECT_EQ(number, 4096u);
    EXPECT_EQ(Steps().at(3), "write 1024+524288");
    EXPECT_EQ(Entry(kBackup, 4095).lastLba, 1200u);
    ExpectValidChecksums(kPrimary);
    ExpectValidChecksums(kBackup);
}

TEST_F(GptEditHostileTest, AnEntryIsAtLeast128BytesLong)
{
    for (const uint32_t bytes : {0u, 1u, 127u}) {
        UseChanged(kPrimary, Entries(128, bytes));
        ExpectRefused(kCorrupt, {"read 512+512", "read 512+512"});

        UseChanged(kBackup, Entries(128, bytes));
        ExpectHalfDone(kCorrupt, {"read 1048064+512"});
    }
}

// Cut to 32 bits these would be nothing, a sector or a few bytes.
TEST_F(GptEditHostileTest, AnArrayOf4GiBAndMoreIsNotEvenTried)
{
    for (const auto& [count, bytes] : {std::pair{4096u, 0x100000u}, std::pair{512u, 0x800001u},
                                       std::pair{3u, 0x55555556u}, std::pair{4096u, 0xFFFFFFFFu}}) {
        UseChanged(kPrimary, Entries(count, bytes));
        ExpectRefused(kNoMemory, {"read 512+512", "read 512+512"});
        EXPECT_EQ(machine.journal.Count({.kind = machine::CallKind::Allocate}), 2u);

        UseChanged(kBackup, Entries(count, bytes));
        ExpectHalfDone(kNoMemory, {"read 1048064+512"});
        EXPECT_EQ(machine.journal.Count({.kind = machine::CallKind::Allocate}), 4u);
    }
}

TEST_F(GptEditHostileTest, AnArrayOfAByteLessIsTried)
{
    for (const auto& [count, bytes] : {std::pair{1u, 0xFFFFFFFFu}, std::pair{3u, 0x55555555u}}) {
        UseChanged(kPrimary, Entries(count, bytes));

        ExpectRefused(kNoMemory, {"read 512+512", "read 512+512"});
        EXPECT_EQ(AllocationsOf(0xFFFFFFFF), 1u);
    }
}

TEST_F(GptEditHostileTest, AnArrayBeyondAllAddressesIsCorrupt)
{
    // The second one would wrap round to where the array really is.
    for (const uint64_t lba : {kFirstOverflow, kFirstOverflow + 2, UINT64_MAX}) {
        UseChanged(kPrimary, [lba](auto& header) { header.entriesLba = lba; });
        ExpectRefused(kCorrupt, {"read 512+512", "read 512+512"});

        UseChanged(kBackup, [lba](auto& header) { header.entriesLba = lba; });
        ExpectHalfDone(kCorrupt, {"read 1048064+512"});
    }
}

TEST_F(GptEditHostileTest, AnArrayBeyondTheDiskHasTheDevicesStatus)
{
    UseChanged(kPrimary, [](auto& header) { header.entriesLba = 2048; });
    ExpectRefused(0xC0000015, {"read 512+512", "read 512+512", "read 1048576+16384"});

    UseChanged(kPrimary, [](auto& header) { header.entriesLba = kFirstOverflow - 1; });
    ExpectRefused(0xC000000D, {"read 512+512", "read 512+512"});
}

TEST_F(GptEditHostileTest, AnArrayOfPartsOfSectorsHasTheDisksStatus)
{
    machine::Disk& disk =
        machine.AddDisk(1 * kMiB).Gpt({.partitions = {{.start = 51200, .length = 512}}, .entryCount = 5});
    DevicePtr drive;
    ASSERT_EQ(OpenDevice(u"\\??\\PhysicalDrive0", true, drive), KK_STATUS_SUCCESS);
    const std::vector<uint8_t> before = disk.ReadBytes(0, 1 * kMiB);

    EXPECT_EQ(EditGptPartition(*drive, 512, Removing(100), nullptr), Status(0xC000000D));
    EXPECT_EQ(disk.ReadBytes(0, 1 * kMiB), before);
    EXPECT_EQ(machine.journal.Last({.kind = machine::CallKind::ReadFile})->length, 640u);
}

TEST_F(GptEditHostileTest, ABackupBeyondAllAddressesIsCorrupt)
{
    // The second one would wrap round to the primary.
    for (const uint64_t lba : {kFirstOverflow, kFirstOverflow + 1, UINT64_MAX}) {
        UseChanged(kPrimary, [lba](auto& header) { header.otherLba = lba; });
        ExpectHalfDone(kCorrupt, {});
    }
}

TEST_F(GptEditHostileTest, ABackupBeyondTheDiskHasTheDevicesStatus)
{
    UseChanged(kPrimary, [](auto& header) { header.otherLba = 2048; });

    ExpectHalfDone(0xC0000015, {"read 1048576+512"});
}

TEST_F(GptEditHostileTest, ABackupAtLbaZeroHasNoSignature)
{
    UseChanged(kPrimary, [](auto& header) { header.otherLba = 0; });

    ExpectHalfDone(kCorrupt, {"read 0+512"});
}

TEST_F(GptEditHostileTest, AHeaderThatNamesItselfAsBackupIsEditedTwice)
{
    const Change pointToItself = [](auto& header) { header.otherLba = 1; };
    UseChanged(kPrimary, pointToItself);

    EXPECT_EQ(Edit(Adding(300, 400)), KK_STATUS_SUCCESS);
    EXPECT_EQ(number, 2u);
    EXPECT_EQ(Entry(kPrimary, 1).firstLba, 300u);
    EXPECT_EQ(Entry(kPrimary, 2).firstLba, 300u);
    ExpectValidChecksums(kPrimary);
    EXPECT_EQ(Edit(Resizing(100, 200)), KK_STATUS_SUCCESS);
    EXPECT_EQ(Edit(Removing(100)), Status(0xC000000D));
    EXPECT_EQ(number, 1u);
    EXPECT_EQ(Entry(kPrimary, 0).type, Guid{});
    EXPECT_EQ(Entry(kBackup, 0).firstLba, 100u);
}

TEST_F(GptEditHostileTest, AHeaderInsideItsArrayIsWrittenOverIt)
{
    UseGpt({100});
    ChangeHeader(kPrimary, [](auto& header) { header.entriesLba = 1; });

    EXPECT_EQ(Edit(Resizing(100, 200)), KK_STATUS_SUCCESS);
    EXPECT_EQ(number, 5u);
    EXPECT_EQ(Steps().at(3), "write 512+16384");
    EXPECT_EQ(Steps().at(4), "write 512+512");
    EXPECT_EQ(Header(kPrimary).entriesLba, 1u);
    EXPECT_NE(Header(kPrimary).headerCrc32, 0u);
    EXPECT_EQ(Number(1024 + 40, 8), 200u);
}

TEST_F(GptEditHostileTest, ASectorThatCannotHoldAHeaderIsNotEvenRead)
{
    UseGpt({100});
    for (const uint32_t bytes : {1u, 64u, 91u}) {
        sectorSize = bytes;
        EXPECT_EQ(Edit(Removing(100)), Status(kCorrupt));
        EXPECT_TRUE(machine.journal.Records().empty()) << bytes;
    }
}

TEST_F(GptEditHostileTest, ASectorForWhichThereIsNoMemoryIsNotRead)
{
    UseGpt({100});
    sectorSize = 0xFFFFFFFF;

    EXPECT_EQ(Edit(Removing(100)), Status(kNoMemory));
    EXPECT_EQ(AllocationsOf(0xFFFFFFFF), 1u);
    EXPECT_TRUE(Steps().empty());
}

}  // namespace
}  // namespace kk
