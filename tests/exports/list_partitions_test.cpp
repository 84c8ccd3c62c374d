#include <algorithm>
#include <cstring>

#include "disk/volume_controls.h"
#include "exports/support/export_test.h"
#include "support/sweep.h"

namespace {

using machine::CallKind;
using machine::FileSystem;

constexpr uint32_t kNtfsVolumeData = 0x90064;
constexpr uint32_t kLayout = 0x70050;
constexpr uint8_t kPattern = 0xEE;

/// A text field of a record, up to its terminator or its end; its address may be odd.
std::u16string TextAt(const KkPartitionInfo& record, size_t offset, size_t bytes)
{
    std::u16string text(bytes / sizeof(char16_t), u'\0');
    std::memcpy(text.data(), reinterpret_cast<const uint8_t*>(&record) + offset, bytes);
    return text.substr(0, text.find(u'\0'));
}

#define TEXT_OF(record, field) TextAt((record), offsetof(KkPartitionInfo, field), sizeof((record).field))

class ListPartitionsTest : public ExportTest {
protected:
    /// The partitions of a disk, in records that held nothing but `fill` before.
    std::vector<KkPartitionInfo> List(uint32_t disk, uint32_t capacity = 16, uint8_t fill = 0)
    {
        std::vector<KkPartitionInfo> records(capacity);
        std::memset(static_cast<void*>(records.data()), fill, records.size() * sizeof(KkPartitionInfo));
        status = api.listPartitions(disk, records.data(), capacity, &count);
        records.resize(std::min(count, capacity));
        return records;
    }

    machine::Disk& AddGptDisk()
    {
        return machine.AddDisk(64 * kMiB).Gpt(
            {.partitions = {
                 {.start = kMiB, .length = 16 * kMiB, .name = u"First"},
                 {.start = 20 * kMiB, .length = 40 * kMiB, .type = machine::kEfiSystemType, .name = u"Second"}}});
    }

    /// What describes the partition itself is right; each text and the size of its volume is right or missing.
    static void ExpectTruthOrNothing(const KkPartitionInfo& record, const KkPartitionInfo& truth)
    {
        EXPECT_EQ(std::memcmp(&record, &truth, offsetof(KkPartitionInfo, driveLetter)), 0);
        EXPECT_TRUE(record.fileSystemSize == 0 || record.fileSystemSize == truth.fileSystemSize);
        const auto rightOrMissing = [](const std::u16string& text, const std::u16string& right) {
            EXPECT_TRUE(text.empty() || text == right);
        };
        rightOrMissing(TEXT_OF(record, driveLetter), TEXT_OF(truth, driveLetter));
        rightOrMissing(TEXT_OF(record, fileSystemName), TEXT_OF(truth, fileSystemName));
        rightOrMissing(TEXT_OF(record, deviceName), TEXT_OF(truth, deviceName));
        rightOrMissing(TEXT_OF(record, volumePath), TEXT_OF(truth, volumePath));
    }

    uint32_t count = 0xFFFF;
    int32_t status = -1;
};

TEST_F(ListPartitionsTest, DescribesAnNtfsPartitionInFull)
{
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

TEST_F(ListPartitionsTest, LeavesEveryByteWithoutContentAsTheCallerHadIt)
{
    AddGptDisk();
    machine.HideVolume(*machine.FindVolume(0, kMiB));

    const std::vector<KkPartitionInfo> partitions = List(0, 4, kPattern);

    ASSERT_EQ(partitions.size(), 2u);
    const auto* const bytes = reinterpret_cast<const uint8_t*>(&partitions[0]);
    EXPECT_EQ(bytes[109] | bytes[110], 0) << "no drive letter";
    EXPECT_EQ(bytes[125] | bytes[126], 0) << "no file system";
    EXPECT_EQ(bytes[149] | bytes[150], 0) << "no device";
    EXPECT_EQ(bytes[245] | bytes[246], 0) << "no volume path";
    for (const auto& [first, end] : {std::pair{111, 117}, {127, 149}, {151, 245}, {247, 373}}) {
        EXPECT_TRUE(std::all_of(bytes + first, bytes + end, [](uint8_t byte) { return byte == kPattern; }))
            << "bytes " << first << " to " << end;
    }
    EXPECT_EQ(uint64_t{partitions[0].fileSystemSize}, 0u);
}

TEST_F(ListPartitionsTest, WritesTheDeviceNameWithoutATerminator)
{
    AddGptDisk();
    const std::u16string name = machine.FindVolume(0, kMiB)->DeviceName();

    const std::vector<KkPartitionInfo> partitions = List(0, 4, kPattern);

    const auto* const field = reinterpret_cast<const uint8_t*>(&partitions[0]) + 149;
    EXPECT_EQ(std::memcmp(field, name.data(), name.size() * 2), 0);
    EXPECT_TRUE(std::all_of(field + name.size() * 2, field + 96, [](uint8_t byte) { return byte == kPattern; }));
}

TEST_F(ListPartitionsTest, NeverWritesTheFourthUnitOfTheDriveLetter)
{
    AddGptDisk();
    machine.AssignLetter(*machine.FindVolume(0, kMiB), u'Q');

    const std::vector<KkPartitionInfo> partitions = List(0, 4, kPattern);

    const auto* const field = reinterpret_cast<const uint8_t*>(&partitions[0]) + 109;
    const uint8_t expected[8] = {'Q', 0, ':', 0, 0, 0, kPattern, kPattern};
    EXPECT_EQ(std::memcmp(field, expected, 8), 0);
}

TEST_F(ListPartitionsTest, OnlyCountsWithoutRecordsAndLooksAtNoVolume)
{
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
    AddGptDisk();
    KkPartitionInfo record = {};

    EXPECT_EQ(api.listPartitions(0, &record, 1, nullptr), 0);

    EXPECT_EQ(uint64_t{record.length}, 16 * kMiB);
}

TEST_F(ListPartitionsTest, PassesTheOpenFailureOnAndCountsNothing)
{
    EXPECT_TRUE(List(5).empty());

    EXPECT_EQ(status, Status(0xC0000034));
    EXPECT_EQ(count, 0u);
}

TEST_F(ListPartitionsTest, PassesTheSixthLayoutFailureOn)
{
    AddGptDisk();
    machine.faults.FailFrom({.code = kLayout}, 1, 0xC0000013);

    EXPECT_TRUE(List(0).empty());

    EXPECT_EQ(status, Status(0xC0000013));
    EXPECT_EQ(count, 0u);
    EXPECT_EQ(machine.journal.Count({.code = kLayout}), 6u);
}

TEST_F(ListPartitionsTest, ListsADiskOfUnknownSizeThatTheListOfDisksLeavesOut)
{
    AddGptDisk().behaviour.geometryFails = true;

    EXPECT_EQ(List(0).size(), 2u);
    uint32_t disks = 0;
    EXPECT_EQ(api.listDisks(nullptr, 0, &disks), 0);
    EXPECT_EQ(disks, 0u);
}

TEST_F(ListPartitionsTest, SucceedsWithNothingOnADiskWithoutATable)
{
    machine.AddDisk(8 * kMiB);

    EXPECT_TRUE(List(0).empty());
    EXPECT_EQ(status, 0);
    EXPECT_EQ(count, 0u);
}

TEST_F(ListPartitionsTest, NamesOtherFileSystemsWithoutASize)
{
    AddGptDisk().Format(20 * kMiB, 40 * kMiB, FileSystem::Fat32);

    const std::vector<KkPartitionInfo> partitions = List(0);

    EXPECT_EQ(TEXT_OF(partitions[1], fileSystemName), u"FAT32");
    EXPECT_EQ(uint64_t{partitions[1].fileSystemSize}, 0u);
}

TEST_F(ListPartitionsTest, LeavesTheNameOfARawVolumeEmpty)
{
    AddGptDisk();

    const std::vector<KkPartitionInfo> partitions = List(0, 4, kPattern);

    const auto* const field = reinterpret_cast<const uint8_t*>(&partitions[0]) + 125;
    const uint8_t expected[8] = {0, 0, 'A', 0, 'W', 0, 0, 0};
    EXPECT_EQ(std::memcmp(field, expected, 8), 0) << "only the first unit is cleared";
}

TEST_F(ListPartitionsTest, KeepsANameThatOnlyBeginsLikeRawOrDiffersInCase)
{
    AddGptDisk();
    machine.FindVolume(0, kMiB)->SetFileSystemName(u"RAWFS");
    machine.FindVolume(0, 20 * kMiB)->SetFileSystemName(u"Raw");

    const std::vector<KkPartitionInfo> partitions = List(0);

    EXPECT_EQ(TEXT_OF(partitions[0], fileSystemName), u"RAWFS");
    EXPECT_EQ(TEXT_OF(partitions[1], fileSystemName), u"Raw");
}

TEST_F(ListPartitionsTest, CutsLongFileSystemNamesToElevenUnits)
{
    AddGptDisk();
    machine.FindVolume(0, kMiB)->SetFileSystemName(u"FifteenLetters!");

    const std::vector<KkPartitionInfo> partitions = List(0, 4, kPattern);

    EXPECT_EQ(TEXT_OF(partitions[0], fileSystemName), u"FifteenLett");
}

TEST_F(ListPartitionsTest, TakesA512ByteSectorWhenNtfsReportsNone)
{
    AddGptDisk().Format(kMiB, 16 * kMiB, FileSystem::Ntfs);
    machine.FindVolume(0, kMiB)->SetNtfsData([](const machine::ControlRequest&) {
        kk::NtfsVolumeData data = {};
        data.numberSectors = 1000;
        data.bytesPerCluster = 4096;
        return machine::ControlAnswer{.output = machine::BytesOf(data)};
    });

    EXPECT_EQ(uint64_t{List(0)[0].fileSystemSize}, 512'000u);
}

TEST_F(ListPartitionsTest, KeepsAFullPartitionNameWithoutATerminator)
{
    const std::u16string name(36, u'n');
    machine.AddDisk(64 * kMiB).Gpt({.partitions = {{.start = kMiB, .length = kMiB, .name = name}}});

    const std::vector<KkPartitionInfo> partitions = List(0);

    EXPECT_EQ(TEXT_OF(partitions[0], name), name);
}

TEST_F(ListPartitionsTest, DescribesAVolumeInAFixedOrder)
{
    machine.AddDisk(64 * kMiB).Gpt({.partitions = {{.start = kMiB, .length = 16 * kMiB}}});
    machine.FindVolume(0, kMiB);

    List(0);

    std::vector<std::string> steps;
    for (const machine::CallRecord& call : machine.journal.Records()) {
        if (call.kind == CallKind::CreateFile || call.kind == CallKind::QueryVolumeInformation) {
            steps.push_back(call.name + " " + call.object + " " + std::to_string(call.options));
        }
    }
    const std::string device = "\\Device\\HarddiskVolume1";
    const std::vector<std::string> expected = {
        "NtCreateFile \\??\\PhysicalDrive0 2144",         // the layout
        "NtCreateFile " + device + " 2144",               // the search for the volume
        "NtCreateFile \\Device\\MountPointManager 2144",  // the letter
        "NtCreateFile " + device + " 2144",               // the size
        "NtCreateFile " + device + " 96",                 // the file system's name
        "NtQueryVolumeInformationFile " + device + " 0",
        "NtCreateFile \\Device\\MountPointManager 2144",  // the path
    };
    EXPECT_EQ(steps, expected);
}

TEST_F(ListPartitionsTest, AsksForNtfsDataWithRoomForLaterSystems)
{
    machine.AddDisk(64 * kMiB).Gpt({.partitions = {{.start = kMiB, .length = 16 * kMiB}}});

    List(0);

    const std::vector<machine::CallRecord> requests = machine.journal.FindAll({.code = kNtfsVolumeData});
    ASSERT_EQ(requests.size(), 2u);
    EXPECT_EQ(requests[0].length, 96u);
    EXPECT_EQ(requests[1].length, 128u);
    const machine::CallRecord* const name = machine.journal.First({.kind = CallKind::QueryVolumeInformation});
    ASSERT_NE(name, nullptr);
    EXPECT_EQ(name->length, 160u);
    EXPECT_EQ(name->code, 5u);
}

TEST_F(ListPartitionsTest, StillNamesTheFileSystemWhenTheSizeCannotBeAskedFor)
{
    AddGptDisk().Format(kMiB, 16 * kMiB, FileSystem::Ntfs);
    machine.faults.Fail({.kind = CallKind::CreateFile, .object = "HarddiskVolume1"}, 2, 0xC0000022);

    const std::vector<KkPartitionInfo> partitions = List(0);

    EXPECT_EQ(uint64_t{partitions[0].fileSystemSize}, 0u);
    EXPECT_EQ(TEXT_OF(partitions[0], fileSystemName), u"NTFS");
}

TEST_F(ListPartitionsTest, NeverReportsAWrappedFileSystemSize)
{
    AddGptDisk();
    machine.FindVolume(0, kMiB)->SetNtfsData([](const machine::ControlRequest&) {
        kk::NtfsVolumeData data = {};
        data.numberSectors = -1;
        data.bytesPerSector = 512;
        return machine::ControlAnswer{.output = machine::BytesOf(data)};
    });

    EXPECT_EQ(uint64_t{List(0)[0].fileSystemSize}, UINT64_MAX);
}

TEST_F(ListPartitionsTest, TakesNoFileSystemNameFromAWarning)
{
    AddGptDisk().Format(kMiB, 16 * kMiB, FileSystem::Ntfs);
    machine.faults.Fail({.kind = CallKind::QueryVolumeInformation}, 1, 0x80000005);

    EXPECT_EQ(TEXT_OF(List(0)[0], fileSystemName), u"");
}

TEST_F(ListPartitionsTest, OpensTheVolumeForItsFileSystemsNameLikeAnyReader)
{
    machine.AddDisk(64 * kMiB).Gpt({.partitions = {{.start = kMiB, .length = 16 * kMiB}}});

    List(0);

    const machine::CallRecord* const open =
        machine.journal.Last({.kind = CallKind::CreateFile, .object = "HarddiskVolume1"});
    ASSERT_NE(open, nullptr);
    EXPECT_EQ(open->access, 0x120089u);
    EXPECT_EQ(open->share, 3u);
    EXPECT_EQ(open->disposition, 1u);
    EXPECT_EQ(open->options, 0x60u);
    EXPECT_EQ(open->fileAttributes, 0x80u);
    EXPECT_EQ(open->objectAttributes, 0x40u);
}

TEST_F(ListPartitionsTest, LeavesTheTailsOfItsTextsAsTheCallerHadThem)
{
    AddGptDisk().Format(kMiB, 16 * kMiB, FileSystem::Ntfs);

    const std::vector<KkPartitionInfo> partitions = List(0, 4, kPattern);

    const auto* const bytes = reinterpret_cast<const uint8_t*>(&partitions[0]);
    const size_t nameEnd = offsetof(KkPartitionInfo, fileSystemName) + (4 + 1) * 2;
    const size_t pathEnd = offsetof(KkPartitionInfo, volumePath) + (49 + 1) * 2;
    EXPECT_EQ(TEXT_OF(partitions[0], volumePath).size(), 49u);
    for (const auto& [first, end] : {std::pair<size_t, size_t>{111, 117}, {nameEnd, 149}, {pathEnd, 373}}) {
        EXPECT_TRUE(std::all_of(bytes + first, bytes + end, [](uint8_t byte) { return byte == kPattern; }))
            << "bytes " << first << " to " << end;
    }
}

TEST_F(ListPartitionsTest, WritesNoRecordWhenThereIsNoMemoryForTheNinthPartition)
{
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
            uint64_t allocationsBefore = 0;
            for (const machine::CallRecord& call : machine.journal.FindAll({.kind = CallKind::Allocate})) {
                allocationsBefore += call.index < failed->index ? 1 : 0;
            }
            EXPECT_EQ(result, expected(*failed, allocationsBefore));
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
    AddGptDisk().Format(kMiB, 16 * kMiB, FileSystem::Ntfs);
    std::vector<KkPartitionInfo> records(2);

    SweepFailingCalls(
        machine, FaultMode::ThatCallAndAllLater, [&] { return api.listPartitions(0, records.data(), 2, &count); },
        [&](const machine::CallRecord*, int32_t result) { EXPECT_EQ(count, result < 0 ? 0u : 2u); });
}

}  // namespace
