#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include "fake_kit.h"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

/// Disk 0 has a partition of 40 MiB at 1 MiB: NTFS in all of it, letter D.
class EditCommandsTest : public CommandLineTest {
protected:
    EditCommandsTest()
    {
        KkPartitionInfo other = PartitionAt(64 << 20, 8 << 20);
        SetText(other.fileSystemName, u"FAT32");
        KkPartitionInfo data = PartitionAt(1 << 20, 40 << 20);
        data.fileSystemSize = (40 << 20) - 512;
        SetText(data.fileSystemName, u"NTFS");
        SetText(data.driveLetter, u"D:");
        library.partitions = {other, data};
        library.createdStart = 1 << 20;
    }
};

TEST_F(EditCommandsTest, CreateHandsTheRegionOnAndTellsWhereThePartitionStarts)
{
    EXPECT_EQ(Run({"create", "7", "512K", "1G", "40M"}), 0);

    EXPECT_THAT(library.edits, ElementsAre("KkCreatePartition(7, 524288, 1073741824, 41943040)"));
    EXPECT_EQ(out, "Created the partition at 1048576 of disk 7 (40.0 MiB, NTFS, D:)\n");
    EXPECT_EQ(err, "");
    EXPECT_TRUE(library.openedForWriting);
}

TEST_F(EditCommandsTest, CreateWithoutASizeTakesAllTheRoom)
{
    EXPECT_EQ(Run({"create", "0", "0", "1T"}), 0);

    EXPECT_THAT(library.edits, ElementsAre("KkCreatePartition(0, 0, 1099511627776, 0)"));
}

TEST_F(EditCommandsTest, APartitionThatIsNotListedYetIsReportedWithItsPlace)
{
    library.createdStart = 3 << 20;

    EXPECT_EQ(Run({"create", "0", "0", "1M"}), 0);
    EXPECT_EQ(out, "Created the partition at 3145728 of disk 0\n");
    EXPECT_EQ(Run({"create", "0", "0", "1M", "--json"}), 0);
    EXPECT_EQ(nlohmann::ordered_json::parse(out).dump(),
              R"({"disk":0,"startOffset":3145728,"length":0,"fileSystemName":"","fileSystemSize":0,"driveLetter":""})");
}

TEST_F(EditCommandsTest, JsonTellsWhatThePartitionIsLikeNow)
{
    const std::vector<std::vector<std::string>> commands = {
        {"create", "3", "0", "1G"},      {"extend", "3", "1M"}, {"shrink", "3", "1M", "40M"},
        {"letter", "3", "1048576", "D"}, {"format", "3", "1M"},
    };
    for (const std::vector<std::string>& command : commands) {
        std::vector<std::string> arguments = command;
        arguments.emplace_back("--json");
        EXPECT_EQ(Run(arguments), 0);
        EXPECT_EQ(nlohmann::ordered_json::parse(out).dump(),
                  R"({"disk":3,"startOffset":1048576,"length":41943040,"fileSystemName":"NTFS",)"
                  R"("fileSystemSize":41942528,"driveLetter":"D:"})")
            << command.front();
    }
}

TEST_F(EditCommandsTest, DeleteNamesThePartition)
{
    EXPECT_EQ(Run({"delete", "2", "1M"}), 0);
    EXPECT_THAT(library.edits, ElementsAre("KkDeletePartition(2, 1048576)"));
    EXPECT_EQ(out, "Deleted the partition at 1048576 of disk 2\n");
    EXPECT_TRUE(library.openedForWriting);

    EXPECT_EQ(Run({"delete", "2", "1M", "--json"}), 0);
    EXPECT_EQ(nlohmann::ordered_json::parse(out).dump(), R"({"disk":2,"startOffset":1048576})");
}

TEST_F(EditCommandsTest, ExtendHandsTheWholeNewSizeOn)
{
    EXPECT_EQ(Run({"extend", "2", "1M", "40M"}), 0);
    EXPECT_EQ(Run({"extend", "2", "1M"}), 0);

    EXPECT_THAT(library.edits,
                ElementsAre("KkExtendPartition(2, 1048576, 41943040)", "KkExtendPartition(2, 1048576, 0)"));
    EXPECT_EQ(out, "Extended the partition at 1048576 of disk 2 (40.0 MiB, NTFS, D:)\n");
    EXPECT_TRUE(library.openedForWriting);
}

TEST_F(EditCommandsTest, AFileSystemThatDidNotGrowIsSeen)
{
    library.partitions[1].fileSystemSize = 39 << 20;

    EXPECT_EQ(Run({"extend", "2", "1M"}), 0);

    EXPECT_THAT(out, HasSubstr("(40.0 MiB, NTFS of only 39.0 MiB, D:)"));
}

TEST_F(EditCommandsTest, ShrinkHandsTheWholeNewSizeOn)
{
    EXPECT_EQ(Run({"shrink", "2", "1M", "40M"}), 0);

    EXPECT_THAT(library.edits, ElementsAre("KkShrinkPartition(2, 1048576, 41943040)"));
    EXPECT_EQ(out, "Shrunk the partition at 1048576 of disk 2 (40.0 MiB, NTFS, D:)\n");
    EXPECT_TRUE(library.openedForWriting);
}

TEST_F(EditCommandsTest, LettersAreHandedOnInUpperCase)
{
    EXPECT_EQ(Run({"letter", "2", "1M", "d"}), 0);
    EXPECT_EQ(out, "Gave a letter to the partition at 1048576 of disk 2 (40.0 MiB, NTFS, D:)\n");
    EXPECT_EQ(Run({"letter", "2", "1M", "Z"}), 0);
    EXPECT_EQ(Run({"letter", "2", "64M", "none"}), 0);
    EXPECT_EQ(out, "Took the letter away from the partition at 67108864 of disk 2 (8.0 MiB, FAT32)\n");

    EXPECT_THAT(library.edits, ElementsAre("KkSetDriveLetter(2, 1048576, 68)", "KkSetDriveLetter(2, 1048576, 90)",
                                           "KkSetDriveLetter(2, 67108864, 0)"));
    EXPECT_FALSE(library.openedForWriting);
}

TEST_F(EditCommandsTest, ARefusedLetterHasCostTheOldOne)
{
    library.editStatus = KK_E_ACCESSDENIED;
    EXPECT_EQ(Run({"letter", "2", "1M", "C"}), 1);
    EXPECT_THAT(err,
                HasSubstr("setting the letter of the partition at 1048576 of disk 2: 0x80070005 KK_E_ACCESSDENIED"));
    EXPECT_THAT(err, HasSubstr("if it had a letter before, that is gone"));

    library.editStatus = KK_STATUS_INVALID_PARAMETER;
    EXPECT_EQ(Run({"letter", "2", "1M", "C"}), 1);
    EXPECT_THAT(err, Not(HasSubstr("gone")));
}

TEST_F(EditCommandsTest, MountpointHandsThePathOnAsTheLibraryWantsIt)
{
    EXPECT_EQ(Run({"mountpoint", "2", "1M", "mnt"}), 0);
    EXPECT_THAT(library.edits, ElementsAre("KkAddMountPoint(2, 1048576, 'Z:\\mnt')"));
    EXPECT_EQ(out, "Mounted the partition at 1048576 of disk 2 on mnt\n");
    EXPECT_FALSE(library.openedForWriting);

    EXPECT_EQ(Run({"mountpoint", "2", "1M", "mnt", "--json"}), 0);
    EXPECT_EQ(nlohmann::ordered_json::parse(out).dump(), R"({"disk":2,"startOffset":1048576,"directory":"mnt"})");
}

TEST_F(EditCommandsTest, AFolderThatTheLibraryWouldCutIsRefused)
{
    EXPECT_EQ(Run({"mountpoint", "2", "1M", std::string(514, 'd')}), 0);
    EXPECT_EQ(Run({"mountpoint", "2", "1M", std::string(515, 'd')}), 2);

    EXPECT_EQ(library.edits.size(), 1u);
    EXPECT_THAT(err, HasSubstr("is too long for a mount point"));
}

TEST_F(EditCommandsTest, FormatIsQuickAndLeavesTheRestToTheLibrary)
{
    EXPECT_EQ(Run({"format", "2", "1M"}), 0);

    EXPECT_THAT(library.edits, ElementsAre("KkFormatPartition(2, 1048576, '', '', 1)"));
    EXPECT_EQ(out, "Formatted the partition at 1048576 of disk 2 (40.0 MiB, NTFS, D:)\n");
    EXPECT_TRUE(library.openedForWriting);
}

TEST_F(EditCommandsTest, FormatHandsItsOptionsOn)
{
    EXPECT_EQ(Run({"format", "2", "1M", "--fs", "exFAT", "--label", "M\u00FCll /Q", "--full"}), 0);
    EXPECT_EQ(Run({"format", "2", "1M", "--label", ""}), 0);
    EXPECT_EQ(Run({"format", "2", "1M", "--label", std::string(32, 'x')}), 0);

    EXPECT_THAT(library.edits, ElementsAre("KkFormatPartition(2, 1048576, 'exFAT', '\"M\u00FCll /Q\"', 0)",
                                           "KkFormatPartition(2, 1048576, '', '', 1)",
                                           "KkFormatPartition(2, 1048576, '', '\"" + std::string(32, 'x') + "\"', 1)"));
}

TEST_F(EditCommandsTest, RebootTellsASimulatedMachineFromARealOne)
{
    EXPECT_EQ(Run({"reboot"}), 0);
    EXPECT_EQ(out, "A real machine would restart now; the simulated one goes on.\n");
    EXPECT_EQ(Run({"reboot", "--json"}), 0);
    EXPECT_EQ(nlohmann::ordered_json::parse(out).dump(), R"({"restart":true,"simulated":true})");

    library.isSimulated = false;
    EXPECT_EQ(Run({"reboot"}), 0);
    EXPECT_EQ(out, "The machine restarts.\n");
    EXPECT_EQ(Run({"reboot", "--json"}), 0);
    EXPECT_EQ(nlohmann::ordered_json::parse(out).dump(), R"({"restart":true,"simulated":false})");

    EXPECT_THAT(library.edits, ElementsAre("KkReboot()", "KkReboot()", "KkReboot()", "KkReboot()"));
}

TEST_F(EditCommandsTest, FailuresAreNamedAndReportNothingDone)
{
    library.editStatus = static_cast<KK_STATUS>(0xC0000022);
    const std::vector<std::pair<std::vector<std::string>, std::string>> failures = {
        {{"create", "2", "0", "1G"}, "creating a partition on disk 2"},
        {{"delete", "2", "1M"}, "deleting the partition at 1048576 of disk 2"},
        {{"extend", "2", "1M"}, "extending the partition at 1048576 of disk 2"},
        {{"shrink", "2", "1M", "1M"}, "shrinking the partition at 1048576 of disk 2"},
        {{"format", "2", "1M"}, "formatting the partition at 1048576 of disk 2"},
        {{"letter", "2", "1M", "D"}, "setting the letter of the partition at 1048576 of disk 2"},
        {{"mountpoint", "2", "1M", "mnt"}, "mounting the partition at 1048576 of disk 2 on mnt"},
        {{"reboot"}, "restarting the machine"},
    };
    for (const auto& [arguments, doing] : failures) {
        EXPECT_EQ(Run(arguments), 1);
        EXPECT_EQ(out, "");
        EXPECT_EQ(err, "kkctl: " + doing +
                           ": 0xC0000022 STATUS_ACCESS_DENIED "
                           "(access is denied; disks and volumes need an elevated process)\n");
    }
}

TEST_F(EditCommandsTest, WrongArgumentsNeverReachTheLibrary)
{
    const std::vector<std::vector<std::string>> wrong = {
        {"create", "0", "1M"},
        {"create", "0", "1M", "1Q"},
        {"create", "0", "1M", "1G", "1.5M"},
        {"create", "0", "1M", "1G", "1M", "1M"},
        {"delete", "0"},
        {"delete", "0", "-1"},
        {"delete", "0", ""},
        {"delete", "0", "16777216T"},
        {"extend", "x", "1M"},
        {"extend", "0", "1M", "all"},
        {"shrink", "0", "1M"},
        {"letter", "0", "1M"},
        {"letter", "0", "1M", "D:"},
        {"letter", "0", "1M", "1"},
        {"letter", "0", "1M", "@"},
        {"letter", "0", "1M", "["},
        {"letter", "0", "1M", ""},
        {"mountpoint", "0", "1M"},
        {"mountpoint", "0", "1M", "nowhere"},
        {"format", "0", "1M", "--fs", ""},
        {"format", "0", "1M", "--fs", "NTFS /X"},
        {"format", "0", "1M", "--fs", "a&b"},
        {"format", "0", "1M", "--label", "a\"b"},
        {"format", "0", "1M", "--label", "a%b"},
        {"format", "0", "1M", "--label", "a&b"},
        {"format", "0", "1M", "--label", "a<b"},
        {"format", "0", "1M", "--label", "a>b"},
        {"format", "0", "1M", "--label", "a^b"},
        {"format", "0", "1M", "--label", "a|b"},
        {"format", "0", "1M", "--label", "a\nb"},
        {"format", "0", "1M", "--label", "\xFF"},
        {"format", "0", "1M", "--label", std::string(33, 'x')},
        {"reboot", "now"},
    };
    for (const std::vector<std::string>& arguments : wrong) {
        EXPECT_EQ(Run(arguments), 2) << testing::PrintToString(arguments);
        EXPECT_EQ(out, "");
        EXPECT_THAT(err, testing::StartsWith("kkctl: "));
    }
    EXPECT_THAT(library.edits, IsEmpty());
}

class ConfirmationTest : public EditCommandsTest {
protected:
    ConfirmationTest() { inputIsTerminal = true; }
};

TEST_F(ConfirmationTest, TheQuestionNamesWhatWillBeLost)
{
    const std::string data = "the partition at 1048576 of disk 0 (40.0 MiB, NTFS, D:)";
    const std::vector<std::pair<std::vector<std::string>, std::string>> questions = {
        {{"delete", "0", "1M"}, "Delete " + data + " and lose all that is on it?"},
        {{"format", "0", "1M"}, "Format " + data + " and lose all that is on it?"},
        {{"shrink", "0", "1M", "20M"}, "Shrink " + data + " to 20.0 MiB (20971520 bytes)?"},
        {{"reboot"}, "Restart the machine now and lose what other programs have not saved?"},
    };
    for (const auto& [arguments, question] : questions) {
        input = {"n"};
        EXPECT_EQ(Run(arguments), 1);
        EXPECT_EQ(err, "kkctl: " + question + " [y/N] kkctl: nothing was done\n");
        EXPECT_EQ(out, "");
    }
    EXPECT_THAT(library.edits, IsEmpty());
}

TEST_F(ConfirmationTest, APartitionThatIsNotListedIsNamedAllTheSame)
{
    EXPECT_EQ(Run({"delete", "0", "2M"}), 1);
    EXPECT_THAT(err, HasSubstr("Delete the partition at 2097152 of disk 0 and lose"));

    library.partitionsStatus = KK_STATUS_NO_MEMORY;
    EXPECT_EQ(Run({"delete", "0", "1M"}), 1);
    EXPECT_THAT(err, HasSubstr("Delete the partition at 1048576 of disk 0 and lose"));
}

TEST_F(ConfirmationTest, OnlyAYesIsAYes)
{
    for (const char* const answer : {"y", "Y", "yes"}) {
        input = {answer};
        EXPECT_EQ(Run({"delete", "0", "1M"}), 0) << answer;
    }
    EXPECT_EQ(library.edits.size(), 3u);
    for (const char* const answer : {"", "n", "no", "yes!", "delete"}) {
        input = {answer};
        EXPECT_EQ(Run({"delete", "0", "1M"}), 1) << answer;
    }
    input.clear();
    EXPECT_EQ(Run({"delete", "0", "1M"}), 1) << "the input has ended";
    EXPECT_EQ(library.edits.size(), 3u);
}

TEST_F(ConfirmationTest, NobodyIsAskedAfterYesOrWithoutATerminal)
{
    const std::vector<std::vector<std::string>> commands = {
        {"delete", "0", "1M"}, {"format", "0", "1M"}, {"shrink", "0", "1M", "20M"}, {"reboot"}};
    for (const std::vector<std::string>& command : commands) {
        std::vector<std::string> withYes = command;
        withYes.emplace_back("--yes");
        inputIsTerminal = true;
        EXPECT_EQ(Run(withYes), 0);
        EXPECT_EQ(err, "");
        inputIsTerminal = false;
        EXPECT_EQ(Run(command), 0);
        EXPECT_EQ(err, "");
    }
    EXPECT_EQ(library.edits.size(), 8u);
}

TEST_F(ConfirmationTest, WhatLosesNothingIsNotAsked)
{
    EXPECT_EQ(Run({"create", "0", "0", "1G"}), 0);
    EXPECT_EQ(Run({"extend", "0", "1M"}), 0);
    EXPECT_EQ(Run({"letter", "0", "1M", "D"}), 0);
    EXPECT_EQ(Run({"mountpoint", "0", "1M", "mnt"}), 0);

    EXPECT_EQ(library.edits.size(), 4u);
}
