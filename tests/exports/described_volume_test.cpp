#include "exports/support/list_partitions_test.h"

namespace {

using machine::CallKind;
using machine::FileSystem;

constexpr uint32_t kNtfsVolumeData = 0x90064;

/// What the list of partitions says of the volume on each.
class DescribedVolumeTest : public ListPartitionsTest {};

TEST_F(DescribedVolumeTest, LeavesEveryByteWithoutContentAsTheCallerHadIt)
{
    SHOWS(KkListPartitions, KK_STATUS_SUCCESS,
          "of text fields without content only the first unit is written, and the size is 0");

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

TEST_F(DescribedVolumeTest, AsksNothingMoreAboutAPartitionWithoutAVolume)
{
    SHOWS(KkListPartitions, KK_STATUS_SUCCESS, "about a partition without a volume nothing more is asked");

    machine.AddDisk(64 * kMiB).Gpt({.partitions = {{.start = kMiB, .length = 8 * kMiB}}});
    machine.HideVolume(*machine.FindVolume(0, kMiB));

    EXPECT_EQ(List(0).size(), 1u);

    EXPECT_EQ(machine.journal.Count({.object = "MountPointManager"}), 0u);
}

TEST_F(DescribedVolumeTest, WritesTheDeviceNameWithoutATerminator)
{
    SHOWS(KkListPartitions, KK_STATUS_SUCCESS, "the device name is written without a terminator");

    AddGptDisk();
    const std::u16string name = machine.FindVolume(0, kMiB)->DeviceName();

    const std::vector<KkPartitionInfo> partitions = List(0, 4, kPattern);

    const auto* const field = reinterpret_cast<const uint8_t*>(&partitions[0]) + 149;
    EXPECT_EQ(std::memcmp(field, name.data(), name.size() * 2), 0);
    EXPECT_TRUE(std::all_of(field + name.size() * 2, field + 96, [](uint8_t byte) { return byte == kPattern; }));
}

TEST_F(DescribedVolumeTest, NeverWritesTheFourthUnitOfTheDriveLetter)
{
    SHOWS(KkListPartitions, KK_STATUS_SUCCESS, "the fourth unit of the drive letter is never written");

    AddGptDisk();
    machine.AssignLetter(*machine.FindVolume(0, kMiB), u'Q');

    const std::vector<KkPartitionInfo> partitions = List(0, 4, kPattern);

    const auto* const field = reinterpret_cast<const uint8_t*>(&partitions[0]) + 109;
    const uint8_t expected[8] = {'Q', 0, ':', 0, 0, 0, kPattern, kPattern};
    EXPECT_EQ(std::memcmp(field, expected, 8), 0);
}

TEST_F(DescribedVolumeTest, NamesOtherFileSystemsWithoutASize)
{
    SHOWS(KkListPartitions, KK_STATUS_SUCCESS, "file systems other than NTFS are named and have no size");

    AddGptDisk().Format(20 * kMiB, 40 * kMiB, FileSystem::Fat32);

    const std::vector<KkPartitionInfo> partitions = List(0);

    EXPECT_EQ(TEXT_OF(partitions[1], fileSystemName), u"FAT32");
    EXPECT_EQ(uint64_t{partitions[1].fileSystemSize}, 0u);
}

TEST_F(DescribedVolumeTest, GivesASizeToWhateverAnswersLikeNtfs)
{
    SHOWS(KkListPartitions, KK_STATUS_SUCCESS, "a volume of another file system that answers like NTFS has a size");

    AddGptDisk();
    machine::Volume& volume = *machine.FindVolume(0, kMiB);
    volume.SetFileSystemName(u"ReFS");
    volume.SetNtfsData([](const machine::ControlRequest&) {
        kk::NtfsVolumeData data = {};
        data.numberSectors = 1000;
        data.bytesPerSector = 4096;
        return machine::ControlAnswer{.output = machine::BytesOf(data)};
    });

    const std::vector<KkPartitionInfo> partitions = List(0);

    EXPECT_EQ(TEXT_OF(partitions[0], fileSystemName), u"ReFS");
    EXPECT_EQ(uint64_t{partitions[0].fileSystemSize}, 4'096'000u);
}

TEST_F(DescribedVolumeTest, LeavesTheNameOfARawVolumeEmpty)
{
    SHOWS(KkListPartitions, KK_STATUS_SUCCESS,
          "the file system name of a raw volume is empty; only its first unit is cleared");

    AddGptDisk();

    const std::vector<KkPartitionInfo> partitions = List(0, 4, kPattern);

    const auto* const field = reinterpret_cast<const uint8_t*>(&partitions[0]) + 125;
    const uint8_t expected[8] = {0, 0, 'A', 0, 'W', 0, 0, 0};
    EXPECT_EQ(std::memcmp(field, expected, 8), 0) << "only the first unit is cleared";
}

TEST_F(DescribedVolumeTest, KeepsANameThatOnlyBeginsLikeRawOrDiffersInCase)
{
    SHOWS(KkListPartitions, KK_STATUS_SUCCESS, "names that merely begin with RAW or differ from it in case are kept");

    AddGptDisk();
    machine.FindVolume(0, kMiB)->SetFileSystemName(u"RAWFS");
    machine.FindVolume(0, 20 * kMiB)->SetFileSystemName(u"Raw");

    const std::vector<KkPartitionInfo> partitions = List(0);

    EXPECT_EQ(TEXT_OF(partitions[0], fileSystemName), u"RAWFS");
    EXPECT_EQ(TEXT_OF(partitions[1], fileSystemName), u"Raw");
}

TEST_F(DescribedVolumeTest, CutsLongFileSystemNamesToElevenUnits)
{
    SHOWS(KkListPartitions, KK_STATUS_SUCCESS, "file system names are cut to 11 units");

    AddGptDisk();
    machine.FindVolume(0, kMiB)->SetFileSystemName(u"FifteenLetters!");

    const std::vector<KkPartitionInfo> partitions = List(0, 4, kPattern);

    EXPECT_EQ(TEXT_OF(partitions[0], fileSystemName), u"FifteenLett");
}

TEST_F(DescribedVolumeTest, TakesA512ByteSectorWhenNtfsReportsNone)
{
    SHOWS(KkListPartitions, KK_STATUS_SUCCESS, "NTFS that reports sectors of 0 bytes is measured in sectors of 512");

    AddGptDisk().Format(kMiB, 16 * kMiB, FileSystem::Ntfs);
    machine.FindVolume(0, kMiB)->SetNtfsData([](const machine::ControlRequest&) {
        kk::NtfsVolumeData data = {};
        data.numberSectors = 1000;
        data.bytesPerCluster = 4096;
        return machine::ControlAnswer{.output = machine::BytesOf(data)};
    });

    EXPECT_EQ(uint64_t{List(0)[0].fileSystemSize}, 512'000u);
}

TEST_F(DescribedVolumeTest, DescribesAVolumeInAFixedOrder)
{
    SHOWS(KkListPartitions, KK_STATUS_SUCCESS,
          "letter, size, file system and path of a volume are looked up in a fixed order");

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

TEST_F(DescribedVolumeTest, AsksForNtfsDataWithRoomForLaterSystems)
{
    SHOWS(KkListPartitions, KK_STATUS_SUCCESS,
          "the request for NTFS data has room for the longer answers of later systems");

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

TEST_F(DescribedVolumeTest, StillNamesTheFileSystemWhenTheSizeCannotBeAskedFor)
{
    SHOWS(KkListPartitions, KK_STATUS_SUCCESS,
          "a volume that does not open for its size still has its file system named");

    AddGptDisk().Format(kMiB, 16 * kMiB, FileSystem::Ntfs);
    machine.faults.Fail({.kind = CallKind::CreateFile, .object = "HarddiskVolume1"}, 2, 0xC0000022);

    const std::vector<KkPartitionInfo> partitions = List(0);

    EXPECT_EQ(uint64_t{partitions[0].fileSystemSize}, 0u);
    EXPECT_EQ(TEXT_OF(partitions[0], fileSystemName), u"NTFS");
}

TEST_F(DescribedVolumeTest, NeverReportsAWrappedFileSystemSize)
{
    SHOWS(KkListPartitions, KK_STATUS_SUCCESS, "an NTFS size that would wrap is the largest number");

    AddGptDisk();
    machine.FindVolume(0, kMiB)->SetNtfsData([](const machine::ControlRequest&) {
        kk::NtfsVolumeData data = {};
        data.numberSectors = -1;
        data.bytesPerSector = 512;
        return machine::ControlAnswer{.output = machine::BytesOf(data)};
    });

    EXPECT_EQ(uint64_t{List(0)[0].fileSystemSize}, UINT64_MAX);
}

TEST_F(DescribedVolumeTest, TakesNoFileSystemNameFromAWarning)
{
    SHOWS(KkListPartitions, KK_STATUS_SUCCESS, "an answer that is a warning gives no file system name");

    AddGptDisk().Format(kMiB, 16 * kMiB, FileSystem::Ntfs);
    machine.faults.Fail({.kind = CallKind::QueryVolumeInformation}, 1, 0x80000005);

    EXPECT_EQ(TEXT_OF(List(0)[0], fileSystemName), u"");
}

TEST_F(DescribedVolumeTest, OpensTheVolumeForItsFileSystemsNameLikeAnyReader)
{
    SHOWS(KkListPartitions, KK_STATUS_SUCCESS, "a volume is opened for its file system's name as any reader would");

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

TEST_F(DescribedVolumeTest, LeavesTheTailsOfItsTextsAsTheCallerHadThem)
{
    SHOWS(KkListPartitions, KK_STATUS_SUCCESS, "the tails of text fields keep what the caller put there");

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

}  // namespace
