#include <memory>

#include "core/nt.h"
#include "manifest_fixture.h"
#include "support/hook.h"

namespace {

TEST_F(ManifestTest, AManifestHasAllItsMembersInTheirOrder)
{
    machine::Disk& disk = machine.AddDisk(64 * kMiB, {.number = 3});
    disk.Gpt({.partitions = {{.start = kMiB, .length = 8 * kMiB}, {.start = 16 * kMiB, .length = 4 * kMiB}}});
    machine.AssignLetter(*machine.FindVolume(3, 16 * kMiB), u'C');
    request.diskNumber = 3;
    request.usedBlocksOnly = true;
    request.setDiskIndex = 1;
    request.setDiskCount = 2;
    snapshotsUsed = true;
    virtualSize = 64 * kMiB;
    layout.sectorSize = 512;
    layout.diskSize = 64 * kMiB;
    layout.diskGuid = {0x00112233, 0x4455, 0x6677, {0x88, 0x99, 0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0xFF}};
    AddPartition(1, kMiB, 8 * kMiB, u"EFI system partition").typeGuid = machine::kEfiSystemType;
    AddPartition(3, 16 * kMiB, 4 * kMiB, u"Basic data partition").typeGuid = machine::kBasicDataType;
    Plan(0, kMiB);
    Plan(1, 16 * kMiB);

    EXPECT_EQ(Manifest(),
              R"({"tool":"Kestrelkit","formatVersion":2,"backupTimeUtc":"2024-01-17T21:20:00Z","sourceDiskNumber":3,)"
              R"("sourceDiskSize":67108864,"sectorSize":512,"virtualSize":67108864,"partitionStyle":"GPT",)"
              R"("diskGuid":"00112233-4455-6677-8899-aabbccddeeff","usedVss":true,"usedBlocksOnly":true,)"
              R"("compact":false,"omittedMode":"keepEmpty","backupSetId":"set-of-mine","setDiskIndex":1,)"
              R"("setDiskCount":2,"partitions":[)"
              R"({"index":1,"offset":1048576,"originalOffset":1048576,"length":8388608,)"
              R"("typeGuid":"c12a7328-f81f-11d2-ba4b-00a0c93ec93b","name":"EFI system partition","driveLetter":"",)"
              R"("present":true},)"
              R"({"index":3,"offset":16777216,"originalOffset":16777216,"length":4194304,)"
              R"("typeGuid":"ebd0a0a2-b9e5-4433-87c0-68b6b72699c7","name":"Basic data partition","driveLetter":"C:",)"
              R"("present":true}]})");
}

TEST_F(ManifestTest, NumbersReachTheEndsOfTheirRanges)
{
    request.diskNumber = 0xFFFFFFFF;
    request.setDiskIndex = 0xFFFFFFFE;
    request.setDiskCount = 0xFFFFFFFD;
    virtualSize = UINT64_MAX;
    layout.diskSize = UINT64_MAX - 1;
    layout.sectorSize = 0xFFFFFFFC;
    AddPartition(0xFFFFFFFB, UINT64_MAX - 2, UINT64_MAX - 3);
    Plan(0, UINT64_MAX - 4);

    const std::string text = Manifest();

    EXPECT_EQ(Member(text, "sourceDiskNumber"), "4294967295");
    EXPECT_EQ(Member(text, "sourceDiskSize"), "18446744073709551614");
    EXPECT_EQ(Member(text, "sectorSize"), "4294967292");
    EXPECT_EQ(Member(text, "virtualSize"), "18446744073709551615");
    EXPECT_EQ(Member(text, "setDiskIndex"), "4294967294");
    EXPECT_EQ(Member(text, "setDiskCount"), "4294967293");
    EXPECT_EQ(Member(text, "index"), "4294967291");
    EXPECT_EQ(Member(text, "offset"), "18446744073709551611");
    EXPECT_EQ(Member(text, "originalOffset"), "18446744073709551613");
    EXPECT_EQ(Member(text, "length"), "18446744073709551612");
}

TEST_F(ManifestTest, SizesOfTheLayoutAreRecordedAsTheyAre)
{
    layout.sectorSize = 0;
    layout.diskSize = 0;

    const std::string text = Manifest();

    EXPECT_EQ(Member(text, "sectorSize"), "0");
    EXPECT_EQ(Member(text, "sourceDiskSize"), "0");
}

TEST_F(ManifestTest, EveryStyleButMbrIsRecordedAsGpt)
{
    layout.style = kk::PartitionStyle::Mbr;
    EXPECT_EQ(Member(Manifest(), "partitionStyle"), "\"MBR\"");

    layout.style = kk::PartitionStyle::Raw;
    EXPECT_EQ(Member(Manifest(), "partitionStyle"), "\"GPT\"");

    layout.style = kk::PartitionStyle::Gpt;
    EXPECT_EQ(Member(Manifest(), "partitionStyle"), "\"GPT\"");
}

TEST_F(ManifestTest, GuidsAreWrittenForMbrDisksToo)
{
    layout.style = kk::PartitionStyle::Mbr;
    AddPartition(1, kMiB, kMiB).mbrType = 7;

    const std::string text = Manifest();

    EXPECT_EQ(Member(text, "diskGuid"), "\"00000000-0000-0000-0000-000000000000\"");
    EXPECT_EQ(Member(text, "typeGuid"), "\"00000000-0000-0000-0000-000000000000\"");
}

TEST_F(ManifestTest, EveryFlagHasItsMember)
{
    std::string text = Manifest();
    EXPECT_EQ(Member(text, "usedVss"), "false");
    EXPECT_EQ(Member(text, "usedBlocksOnly"), "false");
    EXPECT_EQ(Member(text, "compact"), "false");
    EXPECT_EQ(Member(text, "omittedMode"), "\"keepEmpty\"");

    snapshotsUsed = true;
    text = Manifest();
    EXPECT_EQ(Member(text, "usedVss"), "true");
    EXPECT_EQ(Member(text, "usedBlocksOnly"), "false");

    snapshotsUsed = false;
    request.useSnapshots = 1;
    request.usedBlocksOnly = true;
    text = Manifest();
    EXPECT_EQ(Member(text, "usedVss"), "false");
    EXPECT_EQ(Member(text, "usedBlocksOnly"), "true");
    EXPECT_EQ(Member(text, "compact"), "false");

    request.removeOmitted = true;
    text = Manifest();
    EXPECT_EQ(Member(text, "compact"), "false");
    EXPECT_EQ(Member(text, "omittedMode"), "\"remove\"");
}

TEST_F(ManifestTest, AnyNonZeroCompactFlagIsTrue)
{
    for (const uint32_t flag : {1u, 2u, 0x100u, 0x80000000u}) {
        request.compact = flag;
        EXPECT_EQ(Member(Manifest(), "compact"), "true") << flag;
    }
}

TEST_F(ManifestTest, WithoutASetIdOneIsMadeUp)
{
    machine.clock.SetTime(0x01DA'0123'89AB'CDEF);
    const Hook<&RtlRandomEx> hook([](uint32_t* seed) {
        *seed = 0xFEDCBA98;
        return 0x7654'3210u;
    });

    request.backupSetId = nullptr;
    EXPECT_EQ(Member(Manifest(), "backupSetId"), "\"set-89abcd99aaeeaa98\"");

    request.backupSetId = "";
    EXPECT_EQ(Member(Manifest(), "backupSetId"), "\"set-89abcd99aaeeaa98\"");
}

TEST_F(ManifestTest, TheSetIdIsMadeUpBeforeTheTimeIsTaken)
{
    machine.clock.SetTime(0x01DA'0123'89AB'CDEF);
    machine.clock.SetTick(36'000'000'000);
    const Hook<&RtlRandomEx> hook([](uint32_t* seed) {
        *seed = 0xFEDCBA98;
        return 0x7654'3210u;
    });
    request.backupSetId = nullptr;

    const std::string text = Manifest();

    EXPECT_EQ(Member(text, "backupSetId"), "\"set-89abcd99aaeeaa98\"");
    machine.clock.SetTime(0x01DA'0123'89AB'CDEF + 36'000'000'000);
    machine.clock.SetTick(0);
    request.backupSetId = "x";
    EXPECT_EQ(Member(text, "backupTimeUtc"), Member(Manifest(), "backupTimeUtc"));
}

TEST_F(ManifestTest, AGivenSetIdTakesNoRandomNumber)
{
    Write();

    EXPECT_EQ(machine.journal.Count({.name = "NtQuerySystemTime"}), 1u);
    EXPECT_EQ(machine.journal.Count({.name = "RtlRandomEx"}), 0u);
}

TEST_F(ManifestTest, ASetIdOf63BytesIsKeptWhole)
{
    const std::string id(63, 'i');
    request.backupSetId = id.c_str();

    EXPECT_EQ(Member(Manifest(), "backupSetId"), '"' + id + '"');
}

TEST_F(ManifestTest, ASetIdOf64BytesLosesItsLast)
{
    const std::string id = std::string(63, 'i') + 'x';
    request.backupSetId = id.c_str();

    EXPECT_EQ(Member(Manifest(), "backupSetId"), '"' + std::string(63, 'i') + '"');
}

TEST_F(ManifestTest, NoMoreThan63BytesOfASetIdAreRead)
{
    const auto id = std::make_unique<char[]>(63);  // without a terminator
    std::fill_n(id.get(), 63, 'i');
    request.backupSetId = id.get();

    EXPECT_EQ(Member(Manifest(), "backupSetId"), '"' + std::string(63, 'i') + '"');
}

TEST_F(ManifestTest, ASetIdIsCutInsideACharacter)
{
    const std::string id = std::string(62, 'i') + "\xC3\xA9";
    request.backupSetId = id.c_str();

    EXPECT_EQ(Member(Manifest(), "backupSetId"), '"' + std::string(62, 'i') + "\xC3\"");
}

TEST_F(ManifestTest, ASetIdIsEscapedAfterTheCut)
{
    const std::string id(64, '"');
    request.backupSetId = id.c_str();
    std::string escaped = "\"";
    for (int i = 0; i < 63; ++i) {
        escaped += "\\\"";
    }

    EXPECT_EQ(Member(Manifest(), "backupSetId"), escaped + '"');
}

}  // namespace
