#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include "fake_kit.h"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

class ShellTest : public CommandLineTest {
protected:
    int RunLines(const std::deque<std::string>& lines, const std::vector<std::string>& arguments = {"shell"})
    {
        input = lines;
        return Run(arguments);
    }
};

TEST_F(ShellTest, EveryLineIsACommandForOneLibrary)
{
    EXPECT_EQ(RunLines({"delete 0 1M", "letter 1 2M \"x\"", "mountpoint 0 1M \"my disk\\\"", "disks"}), 0);

    EXPECT_THAT(library.edits, ElementsAre("KkDeletePartition(0, 1048576)", "KkSetDriveLetter(1, 2097152, 88)",
                                           "KkAddMountPoint(0, 1048576, 'Z:\\my disk\\')"));
    EXPECT_THAT(out, StartsWith("Deleted the partition at 1048576 of disk 0\n"));
    EXPECT_TRUE(out.ends_with("There is no disk that can be read.\n")) << out;
    EXPECT_EQ(err, "");
    EXPECT_EQ(library.openCount, 1);
    EXPECT_TRUE(library.openedForWriting);
}

TEST_F(ShellTest, BlankLinesAndCommentsAreSkipped)
{
    EXPECT_EQ(RunLines({"", "  \t", "# delete 0 1M", "  # \"", "\r", "delete 0 2M\r"}), 0);

    EXPECT_THAT(library.edits, ElementsAre("KkDeletePartition(0, 2097152)"));
    EXPECT_EQ(err, "");
}

TEST_F(ShellTest, AByteOrderMarkBeforeTheFirstLineIsSkipped)
{
    EXPECT_EQ(RunLines({"\xEF\xBB\xBF# comment", "delete 0 1M"}), 0);
    EXPECT_EQ(RunLines({"\xEF\xBB\xBFreboot"}), 0);

    EXPECT_THAT(library.edits, ElementsAre("KkDeletePartition(0, 1048576)", "KkReboot()"));
}

TEST_F(ShellTest, ExitAndQuitEndIt)
{
    for (const char* const word : {"exit", "quit", " quit \r"}) {
        EXPECT_EQ(RunLines({word, "reboot"}), 0);
        EXPECT_THAT(input, ElementsAre("reboot"));
    }
    EXPECT_THAT(library.edits, IsEmpty());
}

TEST_F(ShellTest, AFailureDoesNotEndItAndTheFirstIsTheExitCode)
{
    EXPECT_EQ(RunLines({"mountpoint 0 1M nowhere", "partitions 0", "reboot"}), 2);
    EXPECT_EQ(err, "kkctl: no such place\nkkctl: line 1 failed\n");

    library.partitionsStatus = KK_STATUS_NO_MEMORY;
    EXPECT_EQ(RunLines({"disks", "", "partitions 0", "nonsense", "reboot"}), 1);
    EXPECT_THAT(err, HasSubstr("0xC0000017 KK_STATUS_NO_MEMORY (memory ran out)\nkkctl: line 3 failed\n"));
    EXPECT_THAT(err, HasSubstr("there is no command or option nonsense"));
    EXPECT_THAT(err, HasSubstr("kkctl: line 4 failed\n"));
    EXPECT_THAT(library.edits, ElementsAre("KkReboot()", "KkReboot()"));
}

TEST_F(ShellTest, ALineThatCannotBeReadIsAFailure)
{
    const std::string withZero("reboot\0", 7);
    for (const std::string& line : {std::string("letter 0 1M \"X"), std::string("mountpoint 0 1M \xFF"), withZero}) {
        EXPECT_EQ(RunLines({line, "disks"}), 2) << testing::PrintToString(line);
        EXPECT_THAT(err, HasSubstr("kkctl: line 1 failed\n"));
    }
    EXPECT_THAT(library.edits, IsEmpty());
}

TEST_F(ShellTest, OptionsCountForTheirLineAndThoseOfTheCommandLineForAll)
{
    EXPECT_EQ(RunLines({"disks --json", "disks"}), 0);
    EXPECT_EQ(out, "{\n  \"disks\": []\n}\nThere is no disk that can be read.\n");

    EXPECT_EQ(RunLines({"disks", "disks"}, {"--json", "shell"}), 0);
    EXPECT_EQ(out, "{\n  \"disks\": []\n}\n{\n  \"disks\": []\n}\n");
}

TEST_F(ShellTest, WhatSaysWhichLibraryToLoadIsNotForLines)
{
    EXPECT_EQ(RunLines({"disks --dll x.dll"}, {"shell", "--dll", "y.dll", "--disk", "/dev/null"}), 2);
    EXPECT_THAT(err, HasSubstr("--dll"));
    EXPECT_EQ(RunLines({"--disk /dev/null disks"}), 2);
    EXPECT_THAT(err, HasSubstr("--disk"));
    EXPECT_EQ(RunLines({}, {"shell", "--dll", "y.dll", "--disk", "/dev/null"}), 0);

    EXPECT_EQ(library.openedDll, "y.dll");
    EXPECT_THAT(library.openedDisks, ElementsAre("/dev/null"));
}

TEST_F(ShellTest, AShellWithinAShellIsRefused)
{
    EXPECT_EQ(RunLines({"shell", "reboot"}), 2);

    EXPECT_THAT(err, HasSubstr("there is no command or option shell"));
    EXPECT_THAT(library.edits, ElementsAre("KkReboot()"));
}

TEST_F(ShellTest, HelpListsTheCommandsOrExplainsOne)
{
    EXPECT_EQ(RunLines({"help"}), 0);
    EXPECT_THAT(out, HasSubstr("partitions"));
    EXPECT_THAT(out, HasSubstr("exit and quit end the shell"));
    EXPECT_EQ(RunLines({"help format"}), 0);
    EXPECT_THAT(out, HasSubstr("--label"));
    EXPECT_THAT(out, Not(HasSubstr("mountpoint")));
}

TEST_F(ShellTest, ALibraryThatDoesNotLoadEndsIt)
{
    EXPECT_EQ(RunLines({"disks"}, {"shell", "--dll", "broken.dll"}), 1);

    EXPECT_EQ(err, "kkctl: cannot load broken.dll\n");
    EXPECT_THAT(input, ElementsAre("disks"));
}

TEST_F(ShellTest, ATerminalIsPromptedAndAskedAndEndsWellWhateverFailed)
{
    inputIsTerminal = true;

    EXPECT_EQ(RunLines({"delete 0 1M", "n", "delete 0 2M", "y", "delete 0 3M --yes", "nonsense"}), 0);

    EXPECT_THAT(err, StartsWith("kkctl> kkctl: Delete the partition at 1048576 of disk 0 and lose all that is on it? "
                                "[y/N] kkctl: nothing was done\nkkctl> kkctl: Delete"));
    EXPECT_TRUE(err.ends_with("kkctl> \n")) << err;
    EXPECT_THAT(err, Not(HasSubstr("failed")));
    EXPECT_THAT(library.edits, ElementsAre("KkDeletePartition(0, 2097152)", "KkDeletePartition(0, 3145728)"));
}

TEST_F(ShellTest, AScriptIsNeitherPromptedNorAsked)
{
    EXPECT_EQ(RunLines({"delete 0 1M", "shrink 0 1M 1M", "format 0 1M", "reboot"}), 0);

    EXPECT_EQ(err, "");
    EXPECT_EQ(library.edits.size(), 4u);
}
