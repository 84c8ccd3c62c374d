#include "exports/support/list_partitions_test.h"
#include "support/sweep.h"

namespace {

using machine::CallKind;
using machine::FileSystem;

constexpr uint32_t kLayout = 0x70050;

TEST_F(ListPartitionsTest, DescribesAnNtfsPartitionInFull)
{
    SHOWS(KkListPartitions, KK_STATUS_SUCCESS,
          "number, place, type, name, letter, NTFS size, file system, device and volume path are told");

    AddGptDisk().Format(kMiB, 16 * kMiB, FileSystem::Ntfs);
    machine::Volume& volume = *machine.FindVolume(0, kMiB);
    machine.AssignLetter(volume, u'K');

    const std::vector<KkPartitionInfo> partitions = List(0);

    ASSERT_EQ(status, 0);
    ASSERT_EQ(partitions.size(), 2u);
    const KkPartitionInfo& first = partitions[0];
    EXPECT_EQ(uint32_t{first.number}, 1u);
    EXPECT_EQ(uint64_t{first.startOffset}, kMiB);
    EXPECT_EQ(uint64_t{first.length}, 16 * kMiB);
    EXPECT_EQ(std::memcmp(first.typeGuid, &machine::kBasicDataType, 16), 0);
    EXPECT_EQ(first.mbrType, 0);
    EXPECT_EQ(TEXT_OF(first, name), u"First");
    EXPECT_EQ(TEXT_OF(first, driveLetter), u"K:");
    EXPECT_EQ(uint64_t{first.fileSystemSize}, 16 * kMiB - 512) << "NTFS keeps a sector for its second boot sector";
    EXPECT_EQ(TEXT_OF(first, fileSystemName), u"NTFS");
    EXPECT_EQ(TEXT_OF(first, deviceName), volume.DeviceName());
    EXPECT_EQ(TEXT_OF(first, volumePath), volume.Path());
    EXPECT_EQ(std::memcmp(partitions[1].typeGuid, &machine::kEfiSystemType, 16), 0);
    EXPECT_EQ(TEXT_OF(partitions[1], driveLetter), u"");
}

TEST_F(ListPartitionsTest, DescribesAnMbrPartitionByItsTypeByte)
{
    SHOWS(KkListPartitions, KK_STATUS_SUCCESS, "an MBR partition has its type byte, and zeros for GPT type and name");

    machine.AddDisk(64 * kMiB).Mbr({.partitions = {{.start = kMiB, .length = 8 * kMiB, .type = 0x27}}});

    const std::vector<KkPartitionInfo> partitions = List(0, 4, kPattern);

    ASSERT_EQ(partitions.size(), 1u);
    EXPECT_EQ(partitions[0].mbrType, 0x27);
    const uint8_t zeros[72] = {};
    EXPECT_EQ(std::memcmp(partitions[0].typeGuid, zeros, 16), 0);
    EXPECT_EQ(std::memcmp(reinterpret_cast<const uint8_t*>(&partitions[0]) + 37, zeros, 72), 0);
}

TEST_F(ListPartitionsTest, ListsLogicalDrivesInTableOrderWithoutTheirContainer)
{
    SHOWS(KkListPartitions, KK_STATUS_SUCCESS,
          "partitions come in table order, logical drives after the primary ones, without their container");

    machine.AddDisk(128 * kMiB)
        .Mbr({.partitions = {{.start = 8 * kMiB, .length = 4 * kMiB, .type = 0x07},
                             {.start = kMiB, .length = 4 * kMiB, .type = 0x0C}},
              .logicals = {{.start = 32 * kMiB, .length = 4 * kMiB, .type = 0x07},
                           {.start = 64 * kMiB, .length = 4 * kMiB, .type = 0x83}}});

    const std::vector<KkPartitionInfo> partitions = List(0);

    ASSERT_EQ(partitions.size(), 4u);
    EXPECT_EQ(uint64_t{partitions[0].startOffset}, 8 * kMiB);
    EXPECT_EQ(uint64_t{partitions[1].startOffset}, kMiB);
    EXPECT_EQ(uint64_t{partitions[2].startOffset}, 32 * kMiB);
    EXPECT_EQ(uint64_t{partitions[3].startOffset}, 64 * kMiB);
    EXPECT_EQ(partitions[3].mbrType, 0x83);
}

TEST_F(ListPartitionsTest, OnlyCountsWithoutRecordsAndLooksAtNoVolume)
{
    SHOWS(KkListPartitions, KK_STATUS_SUCCESS,
          "without records, or with a capacity of 0, partitions are counted and no volume is looked at");

    AddGptDisk();

    EXPECT_EQ(api.listPartitions(0, nullptr, 7, &count), 0);
    EXPECT_EQ(count, 2u);
    KkPartitionInfo record = {};
    EXPECT_EQ(api.listPartitions(0, &record, 0, &count), 0);
    EXPECT_EQ(count, 2u);

    EXPECT_EQ(machine.journal.Count({.object = "HarddiskVolume"}), 0u);
    EXPECT_EQ(machine.journal.Count({.object = "MountPointManager"}), 0u);
}

TEST_F(ListPartitionsTest, ReportsTheFullNumberWhenFewerRecordsFit)
{
    SHOWS(KkListPartitions, KK_STATUS_SUCCESS,
          "with room for fewer records the count is that of all partitions; nothing is written past the room");

    AddGptDisk();
    KkPartitionInfo records[2];
    std::memset(static_cast<void*>(records), kPattern, sizeof(records));

    EXPECT_EQ(api.listPartitions(0, records, 1, &count), 0);

    EXPECT_EQ(count, 2u);
    EXPECT_EQ(uint64_t{records[0].startOffset}, kMiB);
    const auto* const second = reinterpret_cast<const uint8_t*>(&records[1]);
    EXPECT_TRUE(std::all_of(second, second + sizeof(KkPartitionInfo), [](uint8_t byte) { return byte == kPattern; }));
}

TEST_F(ListPartitionsTest, NeedsNoCount)
{
    SHOWS(KkListPartitions, KK_STATUS_SUCCESS, "the count need not be asked for");

    AddGptDisk();
    KkPartitionInfo record = {};

    EXPECT_EQ(api.listPartitions(0, &record, 1, nullptr), 0);

    EXPECT_EQ(uint64_t{record.length}, 16 * kMiB);
}

TEST_F(ListPartitionsTest, PassesTheOpenFailureOnAndCountsNothing)
{
    SHOWS(KkListPartitions, 0xC0000034, "the status of a disk that does not open is passed on; the count is 0");

    EXPECT_TRUE(List(5).empty());

    EXPECT_EQ(status, Status(0xC0000034));
    EXPECT_EQ(count, 0u);
}

TEST_F(ListPartitionsTest, PassesTheSixthLayoutFailureOn)
{
    SHOWS(KkListPartitions, KK_STATUS_NO_MEDIA_IN_DEVICE,
          "the status of the sixth and last request for the layout is passed on; the count is 0");

    AddGptDisk();
    machine.faults.FailFrom({.code = kLayout}, 1, 0xC0000013);

    EXPECT_TRUE(List(0).empty());

    EXPECT_EQ(status, Status(0xC0000013));
    EXPECT_EQ(count, 0u);
    EXPECT_EQ(machine.journal.Count({.code = kLayout}), 6u);
}

TEST_F(ListPartitionsTest, ListsADiskOfUnknownSizeThatTheListOfDisksLeavesOut)
{
    SHOWS(KkListPartitions, KK_STATUS_SUCCESS, "a disk that does not tell its size is listed all the same");
    SHOWS(KkListDisks, KK_STATUS_SUCCESS,
          "a disk that does not tell its size is left out though its partitions can be listed");

    AddGptDisk().behaviour.geometryFails = true;

    EXPECT_EQ(List(0).size(), 2u);
    uint32_t disks = 0;
    EXPECT_EQ(api.listDisks(nullptr, 0, &disks), 0);
    EXPECT_EQ(disks, 0u);
}

TEST_F(ListPartitionsTest, SucceedsWithNothingOnADiskWithoutATable)
{
    SHOWS(KkListPartitions, KK_STATUS_SUCCESS, "a disk without a table has 0 partitions");

    machine.AddDisk(8 * kMiB);

    EXPECT_TRUE(List(0).empty());
    EXPECT_EQ(status, 0);
    EXPECT_EQ(count, 0u);
}

TEST_F(ListPartitionsTest, KeepsAFullPartitionNameWithoutATerminator)
{
    SHOWS(KkListPartitions, KK_STATUS_SUCCESS, "a name of 36 units has no terminator");

    const std::u16string name(36, u'n');
    machine.AddDisk(64 * kMiB).Gpt({.partitions = {{.start = kMiB, .length = kMiB, .name = name}}});

    const std::vector<KkPartitionInfo> partitions = List(0);

    EXPECT_EQ(TEXT_OF(partitions[0], name), name);
}

TEST_F(ListPartitionsTest, WritesNoRecordWhenThereIsNoMemoryForTheNinthPartition)
{
    SHOWS(KkListPartitions, KK_STATUS_NO_MEMORY,
          "no memory for the list of partitions: no record is written, and the count is 0");

    machine::GptTable table;
    for (uint64_t i = 0; i < 9; ++i) {
        table.partitions.push_back({.start = (1 + i) * kMiB, .length = kMiB});
    }
    machine.AddDisk(64 * kMiB).Gpt(table);
    // The drive's object, the layout's answer, room for eight partitions, room for sixteen.
    machine.faults.Fail({.kind = CallKind::Allocate}, 4, 0);
    std::vector<KkPartitionInfo> records(9);

    EXPECT_EQ(api.listPartitions(0, records.data(), 9, &count), KK_STATUS_NO_MEMORY);

    EXPECT_EQ(count, 0u);
    EXPECT_EQ(uint32_t{records[0].number}, 0u);
}

TEST_F(ListPartitionsTest, FailsOnlyForTheLayoutAndForNothingElse)
{
    SHOWS(KkListPartitions, KK_STATUS_SUCCESS, "what fails after the layout was read only leaves fields empty");
    SHOWS(KkListPartitions, 0xC00000E9, "whichever call fails, only the disk's open decides with its own status");
    SHOWS(KkListPartitions, KK_STATUS_NO_MEMORY,
          "whichever allocation fails, only the first three, of the layout, decide");

    AddGptDisk().Format(kMiB, 16 * kMiB, FileSystem::Ntfs);
    machine.AssignLetter(*machine.FindVolume(0, kMiB), u'K');
    machine.HideVolume(*machine.FindVolume(0, 20 * kMiB));
    // The heap calls before the first volume is opened: the drive's object, the answer, the partition list.
    const auto expected = [](const machine::CallRecord& failed, uint64_t allocationsBefore) {
        if (failed.kind == CallKind::CreateFile && failed.object == "\\??\\PhysicalDrive0") {
            return static_cast<int32_t>(failed.result);
        }
        return failed.kind == CallKind::Allocate && allocationsBefore < 3 ? Status(0xC0000017) : 0;
    };

    const std::vector<KkPartitionInfo> truth = List(0);
    std::vector<KkPartitionInfo> records(2);
    const uint64_t calls = SweepFailingCalls(
        machine, FaultMode::OneCall, [&] { return api.listPartitions(0, records.data(), 2, &count); },
        [&](const machine::CallRecord* failed, int32_t result) {
            if (failed == nullptr) {
                EXPECT_EQ(result, 0);
                return;
            }
            EXPECT_EQ(result, expected(*failed, CallsBefore(machine.journal, *failed, {.kind = CallKind::Allocate})));
            EXPECT_EQ(count, result < 0 ? 0u : 2u);
            if (result == 0) {
                ExpectTruthOrNothing(records[0], truth[0]);
                ExpectTruthOrNothing(records[1], truth[1]);
            }
        });

    EXPECT_GT(calls, 140u);
}

TEST_F(ListPartitionsTest, ComesBackWithAStatusWhenEverythingFailsFromSomePointOn)
{
    SHOWS(KkListPartitions, KK_STATUS_SUCCESS,
          "when everything fails from some point of the volume look-ups on, the partitions are listed");
    SHOWS(KkListPartitions,
          "the count is 0 after each failure and right after each success, wherever everything begins to fail");

    AddGptDisk().Format(kMiB, 16 * kMiB, FileSystem::Ntfs);
    std::vector<KkPartitionInfo> records(2);

    SweepFailingCalls(
        machine, FaultMode::ThatCallAndAllLater, [&] { return api.listPartitions(0, records.data(), 2, &count); },
        [&](const machine::CallRecord*, int32_t result) { EXPECT_EQ(count, result < 0 ? 0u : 2u); });
}

}  // namespace
