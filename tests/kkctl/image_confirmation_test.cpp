#include <gmock/gmock.h>

#include "restore_fixture.h"

using testing::IsEmpty;

/// A person sits at a terminal.
class ImageConfirmationTest : public RestoreCommandTest {
protected:
    ImageConfirmationTest()
    {
        inputIsTerminal = true;
        library.partitions = {PartitionAt(1 << 20, 40 << 20)};
    }
};

TEST_F(ImageConfirmationTest, TheQuestionNamesWhatWillBeLost)
{
    const std::vector<std::pair<std::vector<std::string>, std::string>> questions = {
        {{"restore", "x", "1"}, "Restore all partitions of x onto disk 1 and lose what is there?"},
        {{"restore", "x", "1", "--partitions", "1,4", "--write-table"},
         "Restore partitions 1,4 of x onto disk 1, replace its partition table and lose what is there?"},
        {{"restore-volume", "x", "4", "D:"}, "Overwrite D: with partition 4 of x and lose all that is on it?"},
        {{"clone", "C:", "D:"}, "Overwrite D: with a copy of C: and lose all that is on it?"},
        {{"recover", "x", "4", "2", "1M"},
         "Overwrite the partition at 1048576 of disk 2 (40.0 MiB) with partition 4 of x and lose all that is on it?"},
        {{"discard", "o"}, "Detach o and delete the file with all that was written to its disk?"},
    };
    for (const auto& [arguments, question] : questions) {
        input = {"n"};
        EXPECT_EQ(Run(arguments), 1);
        EXPECT_EQ(err, "kkctl: " + question + " [y/N] kkctl: nothing was done\n");
        EXPECT_EQ(out, "");
    }
    EXPECT_THAT(library.edits, IsEmpty());
}

TEST_F(ImageConfirmationTest, NobodyIsAskedAfterYesOrWithoutATerminal)
{
    const std::vector<std::vector<std::string>> commands = {{"restore", "x", "1"},
                                                            {"restore-volume", "x", "4", "D:"},
                                                            {"clone", "C:", "D:"},
                                                            {"recover", "x", "4", "2", "1M"},
                                                            {"discard", "o"}};
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
    EXPECT_EQ(library.edits.size(), 10u);
}

TEST_F(ImageConfirmationTest, WhatLosesNothingIsNotAsked)
{
    EXPECT_EQ(Run({"inspect", "x"}), 0);
    EXPECT_EQ(Run({"mount", "x"}), 0);
    EXPECT_EQ(Run({"unmount", "x"}), 0);
    EXPECT_EQ(Run({"query", "0"}), 0);
    EXPECT_EQ(Run({"overlay", "x", "o"}), 0);
    EXPECT_EQ(Run({"restore-free", "x", "1", "0", "1M", "1G"}), 0);

    EXPECT_EQ(library.edits.size(), 5u);
}
