#include "exports/support/backup_test.h"

namespace {

class BackupManifestFileTest : public BackupTest {};

TEST_F(BackupManifestFileTest, TellsEverythingInAFixedOrder)
{
    SHOWS(KkBackup, KK_STATUS_SUCCESS, "the manifest tells disk, image, options, set and partitions in a fixed order");

    AddUsualDisk();
    machine.AssignLetter(*machine.FindVolume(0, kNtfsStart), u'W');
    machine.clock.SetTime(133'500'000'000'000'000);

    ASSERT_EQ(Backup({.partitions = {1, 3},
                      .usedBlocksOnly = 1,
                      .setId = "set \"7\"",
                      .setDiskIndex = 2,
                      .setDiskCount = 4294967295}),
              0);

    const std::string expected =
        R"({"tool":"Kestrelkit","formatVersion":2,"backupTimeUtc":"2024-01-17T21:20:00Z","sourceDiskNumber":0,)"
        R"("sourceDiskSize":67108864,"sectorSize":512,"virtualSize":67108864,"partitionStyle":"GPT",)"
        R"("diskGuid":"6b3f2c51-8e1d-4a7b-9c05-2d4e6f8193a4","usedVss":false,"usedBlocksOnly":true,"compact":false,)"
        R"("omittedMode":"keepEmpty","backupSetId":"set \"7\"","setDiskIndex":2,"setDiskCount":4294967295,)"
        R"("partitions":[{"index":1,"offset":1048576,"originalOffset":1048576,"length":35651584,)"
        R"("typeGuid":"c12a7328-f81f-11d2-ba4b-00a0c93ec93b","name":"EFI","driveLetter":"","present":true},)"
        R"({"index":2,"offset":37748736,"originalOffset":37748736,"length":2097152,)"
        R"("typeGuid":"e3c9e316-0b5c-4db8-817d-f92df00215ae","name":"MSR","driveLetter":"","present":false},)"
        R"({"index":3,"offset":41943040,"originalOffset":41943040,"length":20971520,)"
        R"("typeGuid":"ebd0a0a2-b9e5-4433-87c0-68b6b72699c7","name":"Data","driveLetter":"W:","present":true}]})";
    EXPECT_EQ(ReadFile(ManifestPath()), expected);
}

TEST_F(BackupManifestFileTest, MakesUpASetIdentifierWhenThereIsNone)
{
    SHOWS(KkBackup, KK_STATUS_SUCCESS, "a set identifier is made up when none or an empty one is given");

    AddUsualDisk();

    ASSERT_EQ(Backup({.setId = nullptr}), 0);
    const std::string first = Manifest()["backupSetId"];
    images->Remove(ImagePath());
    ASSERT_EQ(Backup({.setId = ""}), 0);

    EXPECT_EQ(first.size(), 20u);
    EXPECT_EQ(first.substr(0, 4), "set-");
    EXPECT_EQ(first.find_first_not_of("0123456789abcdef", 4), std::string::npos);
    EXPECT_EQ(Manifest()["backupSetId"], first) << "on a machine whose clock stands still";
}

TEST_F(BackupManifestFileTest, KeepsSixtyThreeBytesOfASetIdentifier)
{
    SHOWS(KkBackup, KK_STATUS_SUCCESS, "63 bytes of a set identifier are kept");

    AddUsualDisk();
    const std::string exact(63, 'x');

    ASSERT_EQ(Backup({.setId = exact.c_str()}), 0);
    EXPECT_EQ(Manifest()["backupSetId"], exact);

    images->Remove(ImagePath());
    const std::string longer = exact + "y";
    ASSERT_EQ(Backup({.setId = longer.c_str()}), 0);
    EXPECT_EQ(Manifest()["backupSetId"], exact);
}

TEST_F(BackupManifestFileTest, ReplacesAnOlderAndLongerManifest)
{
    SHOWS(KkBackup, KK_STATUS_SUCCESS, "an older and longer manifest is replaced");

    AddUsualDisk();
    Shell("head -c 100000 /dev/zero | tr '\\0' x > " + ManifestPath().string());

    ASSERT_EQ(Backup(), 0);

    EXPECT_EQ(Manifest()["tool"], "Kestrelkit");
}

TEST_F(BackupManifestFileTest, NamesAnMbrDiskWithZeroGuids)
{
    SHOWS(KkBackup, KK_STATUS_SUCCESS, "the manifest of an MBR disk has zero GUIDs and empty names");

    machine.AddDisk(64 * kMiB).Mbr({.partitions = {{.start = kMiB, .length = 4 * kMiB}}});

    ASSERT_EQ(Backup(), 0);

    EXPECT_EQ(Manifest()["partitionStyle"], "MBR");
    EXPECT_EQ(Manifest()["diskGuid"], "00000000-0000-0000-0000-000000000000");
    EXPECT_EQ(Manifest()["partitions"][0]["typeGuid"], "00000000-0000-0000-0000-000000000000");
    EXPECT_EQ(Manifest()["partitions"][0]["name"], "");
}

}  // namespace
