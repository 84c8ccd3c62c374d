#include <filesystem>
#include <fstream>

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include "restore_fixture.h"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

using RestoreTest = RestoreCommandTest;

TEST_F(RestoreTest, RestoreTakesTheNumberOfADisk)
{
    EXPECT_EQ(Run({"restore", "x.vhdx", "12"}), 0);

    EXPECT_THAT(library.edits, ElementsAre("KkRestorePartitions('Z:\\x.vhdx', '\\\\.\\PhysicalDrive12', 'null', 0)"));
    EXPECT_EQ(out, "Restored all partitions of x.vhdx onto disk 12\n");
    EXPECT_EQ(err, "");
    EXPECT_TRUE(library.openedForWriting);
}

TEST_F(RestoreTest, RestoreTakesAFileToo)
{
    EXPECT_EQ(Run({"restore", "x.vhdx", "disk.raw", "--partitions", "4,1", "--write-table"}), 0);

    EXPECT_THAT(library.edits, ElementsAre("KkRestorePartitions('Z:\\x.vhdx', 'Z:\\disk.raw', '4 1', 1)"));
    EXPECT_EQ(out, "Restored partitions 4,1 of x.vhdx onto disk.raw, with a new partition table\n");
}

TEST_F(RestoreTest, JsonListsWhatWasRestoredInTheOrderOfTheImage)
{
    EXPECT_EQ(Run({"restore", "x.vhdx", "1", "--json", "--write-table"}), 0);
    EXPECT_EQ(Json(), R"({"image":"x.vhdx","target":"1","partitions":[1,4],"tableWritten":true})");
    EXPECT_EQ(Run({"restore", "x.vhdx", "1", "--json", "--partitions", "4"}), 0);
    EXPECT_EQ(Json(), R"({"image":"x.vhdx","target":"1","partitions":[4],"tableWritten":false})");
}

TEST_F(RestoreTest, APartitionThatTheImageLacksIsRefused)
{
    const std::vector<std::vector<std::string>> commands = {
        {"restore", "x.vhdx", "0", "--partitions", "1,2"},
        {"restore-free", "x.vhdx", "2", "0", "1M", "1G"},
        {"restore-volume", "x.vhdx", "2", "D:"},
        {"recover", "x.vhdx", "2", "0", "1M"},
    };
    for (const std::vector<std::string>& command : commands) {
        EXPECT_EQ(Run(command), 2);
        EXPECT_EQ(err, "kkctl: x.vhdx has no partition 2\n");
    }
    EXPECT_THAT(library.edits, IsEmpty());
}

TEST_F(RestoreTest, AnImageThatCannotBeInspectedIsAFailure)
{
    library.inspectStatus = KK_STATUS_END_OF_FILE;
    const std::vector<std::vector<std::string>> commands = {
        {"restore", "x.vhdx", "0"},
        {"restore-free", "x.vhdx", "1", "0", "1M", "1G"},
        {"restore-volume", "x.vhdx", "1", "D:"},
        {"recover", "x.vhdx", "1", "0", "1M"},
    };
    for (const std::vector<std::string>& command : commands) {
        EXPECT_EQ(Run(command), 1);
        EXPECT_THAT(err, testing::StartsWith("kkctl: inspecting x.vhdx: 0xC0000011 KK_STATUS_END_OF_FILE"));
    }
    EXPECT_THAT(library.edits, IsEmpty());
}

TEST_F(RestoreTest, AnImageWithAnMbrIsRefusedByRestoreAlone)
{
    library.imageInfo.partitionStyle = KK_PARTITION_STYLE_MBR;

    EXPECT_EQ(Run({"restore", "x.vhdx", "0"}), 2);
    EXPECT_EQ(err, "kkctl: x.vhdx has an MBR, and restore needs a GPT; restore-free and restore-volume take both\n");
    EXPECT_EQ(Run({"restore-free", "x.vhdx", "1", "0", "1M", "1G"}), 0);
    EXPECT_EQ(Run({"restore-volume", "x.vhdx", "1", "D:"}), 0);
    EXPECT_EQ(library.edits.size(), 2u);
}

TEST_F(RestoreTest, ADiskWithOtherSectorsThanTheImageIsRefused)
{
    KkDiskInfo disk = {};
    disk.number = 1;
    disk.sectorSize = 4096;
    library.disks = {disk};

    EXPECT_EQ(Run({"restore", "x.vhdx", "1"}), 2);
    EXPECT_EQ(err, "kkctl: the image has sectors of 512 bytes, disk 1 of 4096\n");
    EXPECT_EQ(Run({"restore", "x.vhdx", "0"}), 0) << "the library knows what to say of a disk that is not listed";
    library.disks[0].sectorSize = 512;
    EXPECT_EQ(Run({"restore", "x.vhdx", "1"}), 0);
}

TEST_F(RestoreTest, RestoreFreeTellsWhereTheNewPartitionIs)
{
    library.partitions = {PartitionAt(1 << 20, 4 << 20), PartitionAt(80 << 20, 8 << 20),
                          PartitionAt(16 << 20, 40 << 20)};

    EXPECT_EQ(Run({"restore-free", "x.vhdx", "4", "7", "5M", "70M", "--keep-size"}), 0);
    EXPECT_EQ(out, "Restored partition 4 of x.vhdx as the partition at 16777216 of disk 7 (40.0 MiB)\n");
    EXPECT_EQ(Run({"restore-free", "x.vhdx", "4", "7", "5M", "70M", "--json"}), 0);
    EXPECT_THAT(out, HasSubstr(R"("startOffset": 16777216)"));

    EXPECT_THAT(library.edits, ElementsAre("KkRestoreToFreeSpace('Z:\\x.vhdx', 4, 7, 5242880, 73400320, 1)",
                                           "KkRestoreToFreeSpace('Z:\\x.vhdx', 4, 7, 5242880, 73400320, 0)"));
    EXPECT_TRUE(library.openedForWriting);
}

TEST_F(RestoreTest, ANewPartitionThatIsNotListedYetIsSaidToBeInItsRegion)
{
    library.partitions = {PartitionAt(1 << 20, 4 << 20), PartitionAt(75 << 20, 8 << 20)};

    EXPECT_EQ(Run({"restore-free", "x.vhdx", "4", "7", "5M", "70M"}), 0);

    EXPECT_EQ(out, "Restored partition 4 of x.vhdx as the partition at 5242880 of disk 7\n");
}

TEST_F(RestoreTest, RestoreVolumeHandsTheVolumeOn)
{
    EXPECT_EQ(Run({"restore-volume", "x.vhdx", "1", "\\Device\\HarddiskVolume3", "--extend"}), 0);
    EXPECT_EQ(out, "Restored partition 1 of x.vhdx onto \\Device\\HarddiskVolume3\n");
    EXPECT_EQ(Run({"restore-volume", "x.vhdx", "4", "D:", "--json"}), 0);
    EXPECT_EQ(Json(), R"({"image":"x.vhdx","partition":4,"volume":"D:"})");

    EXPECT_THAT(library.edits, ElementsAre("KkRestoreToVolume('Z:\\x.vhdx', 1, '\\Device\\HarddiskVolume3', 1)",
                                           "KkRestoreToVolume('Z:\\x.vhdx', 4, '\\\\.\\D:', 0)"));
    EXPECT_TRUE(library.openedForWriting);
}

TEST_F(RestoreTest, CloneHandsBothVolumesOn)
{
    EXPECT_EQ(Run({"clone", "C:", "d:\\", "--extend"}), 0);
    EXPECT_EQ(out, "Cloned C: onto d:\\\n");
    EXPECT_EQ(Run({"clone", "volume.raw", "E:", "--json"}), 0);
    EXPECT_EQ(Json(), R"({"source":"volume.raw","target":"E:"})");

    EXPECT_THAT(library.edits, ElementsAre("KkCloneVolume('\\\\.\\C:', '\\\\.\\d:', 1)",
                                           "KkCloneVolume('Z:\\volume.raw', '\\\\.\\E:', 0)"));
    EXPECT_TRUE(library.openedForWriting);
}

TEST_F(RestoreTest, AVolumeIsNotClonedOntoItself)
{
    EXPECT_EQ(Run({"clone", "C:", "C:\\"}), 2);

    EXPECT_EQ(err, "kkctl: source and target are the same volume\n");
    EXPECT_THAT(library.edits, IsEmpty());
}

TEST_F(RestoreTest, RecoverTellsWhatThePartitionIsLikeNow)
{
    library.partitions = {PartitionAt(1 << 20, 40 << 20)};

    EXPECT_EQ(Run({"recover", "x.vhdx", "4", "2", "1M"}), 0);

    EXPECT_THAT(library.edits, ElementsAre("KkRecoverShrinkToFit('Z:\\x.vhdx', 4, 2, 1048576)"));
    EXPECT_EQ(out, "Recovered partition 4 of x.vhdx into the partition at 1048576 of disk 2 (40.0 MiB)\n");
    EXPECT_TRUE(library.openedForWriting);
}

TEST_F(RestoreTest, AnOverlayThatWasInTheWayOfARecoveryIsNamed)
{
    const std::string image = PathOfThisTest(".vhdx");
    library.editStatus = static_cast<KK_STATUS>(0x80070050);

    EXPECT_EQ(Run({"recover", image, "4", "2", "1M"}), 1);
    EXPECT_THAT(err, Not(HasSubstr("try again")));
    std::ofstream(image + ".rec.avhdx") << "left over";
    EXPECT_EQ(Run({"recover", image, "4", "2", "1M"}), 1);
    EXPECT_THAT(err, HasSubstr("an overlay that an earlier run had left was in the way; try again"));
    library.editStatus = KK_STATUS_NO_MEMORY;
    EXPECT_EQ(Run({"recover", image, "4", "2", "1M"}), 1);
    EXPECT_THAT(err, Not(HasSubstr("try again"))) << "another failure comes before the overlay";
    std::filesystem::remove(image + ".rec.avhdx");
}

TEST_F(RestoreTest, AnImageWhoseNameARecoveryWouldCutIsRefused)
{
    EXPECT_EQ(Run({"recover", std::string(577, 'x'), "4", "2", "1M"}), 0);
    EXPECT_EQ(Run({"recover", std::string(578, 'x'), "4", "2", "1M"}), 2);

    EXPECT_THAT(err, HasSubstr("is too long for a recovery"));
    EXPECT_EQ(library.edits.size(), 1u);
}

TEST_F(RestoreTest, FailuresAreNamedAndReportNothingDone)
{
    library.editStatus = KK_STATUS_BUFFER_TOO_SMALL;
    const std::vector<std::pair<std::vector<std::string>, std::string>> failures = {
        {{"restore", "x", "1"}, "restoring all partitions of x onto disk 1"},
        {{"restore", "x", "d.raw", "--partitions", "1"}, "restoring partitions 1 of x onto d.raw"},
        {{"restore-free", "x", "1", "2", "0", "1G"}, "restoring partition 1 of x into free space of disk 2"},
        {{"restore-volume", "x", "1", "D:"}, "restoring partition 1 of x onto D:"},
        {{"clone", "C:", "D:"}, "cloning C: onto D:"},
        {{"recover", "x", "1", "2", "1M"}, "recovering partition 1 of x into the partition at 1048576 of disk 2"},
    };
    for (const auto& [arguments, doing] : failures) {
        EXPECT_EQ(Run(arguments), 1);
        EXPECT_EQ(out, "");
        EXPECT_EQ(err, "kkctl: " + doing +
                           ": 0xC0000023 KK_STATUS_BUFFER_TOO_SMALL (there is not enough room for the wanted size)\n");
    }
}

TEST_F(RestoreTest, WrongArgumentsNeverReachTheLibrary)
{
    const std::vector<std::vector<std::string>> wrong = {
        {"restore", "x"},
        {"restore", "nowhere", "0"},
        {"restore", "x", "nowhere"},
        {"restore", "x", "0", "--partitions", "1,"},
        {"restore-free", "x", "1", "0", "1M"},
        {"restore-free", "x", "one", "0", "1M", "1G"},
        {"restore-free", "x", "1", "0", "1M", "1Q"},
        {"restore-volume", "x", "1"},
        {"restore-volume", "x", "1", "nowhere"},
        {"clone", "D:"},
        {"clone", "nowhere", "D:"},
        {"clone", "D:", "nowhere"},
        {"recover", "x", "1", "0"},
        {"recover", "x", "-1", "0", "1M"},
        {"recover", "nowhere", "1", "0", "1M"},
    };
    for (const std::vector<std::string>& arguments : wrong) {
        EXPECT_EQ(Run(arguments), 2) << testing::PrintToString(arguments);
        EXPECT_EQ(out, "");
        EXPECT_THAT(err, testing::StartsWith("kkctl: "));
    }
    EXPECT_THAT(library.edits, IsEmpty());
}

TEST_F(RestoreTest, ATerminalSeesProgress)
{
    errorIsTerminal = true;
    const std::vector<std::pair<std::vector<std::string>, std::string>> plans = {
        {{"restore", "x", "0"}, " of at most 50.0 MiB ("},
        {{"restore", "x", "0", "--partitions", "1"}, " of at most 10.0 MiB ("},
        {{"restore-free", "x", "1", "0", "1M", "1G"}, " of at most 10.0 MiB ("},
        {{"restore-volume", "x", "4", "D:"}, " of at most 40.0 MiB ("},
        {{"recover", "x", "4", "2", "1M"}, " of at most 40.0 MiB ("},
        {{"clone", "C:", "D:"}, "0 B"},
    };
    for (const auto& [arguments, plan] : plans) {
        EXPECT_EQ(Run(arguments), 0);
        EXPECT_THAT(err, HasSubstr(plan));
        EXPECT_TRUE(err.ends_with(" \r")) << "the line is wiped out in the end";
    }
}
