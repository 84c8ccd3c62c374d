#include <fstream>
#include <regex>

#include <gmock/gmock.h>

#include "fake_kit.h"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

using AppTest = CommandLineTest;

TEST_F(AppTest, HelpListsTheCommandsAndLoadsNoLibrary)
{
    EXPECT_EQ(Run({"--help"}), 0);

    EXPECT_THAT(out, HasSubstr("disks"));
    EXPECT_THAT(out, HasSubstr("partitions"));
    EXPECT_THAT(out, HasSubstr("backup"));
    EXPECT_EQ(err, "");
    EXPECT_EQ(library.openCount, 0);
}

TEST_F(AppTest, TheVersionIsTheProjectsAndTakesNoLibrary)
{
    EXPECT_EQ(Run({"--version"}), 0);

    EXPECT_EQ(out, "kkctl " KK_PROJECT_VERSION "\n");
    EXPECT_EQ(err, "");
    EXPECT_EQ(library.openCount, 0);
}

TEST_F(AppTest, EveryUsageErrorExitsWithTwoAndLoadsNoLibrary)
{
    const std::vector<std::vector<std::string>> wrong = {
        {},
        {"unknown"},
        {"disks", "extra"},
        {"disks", "--unknown"},
        {"partitions"},
        {"partitions", "-1"},
        {"partitions", "x"},
        {"partitions", "4294967296"},
        {"--disk", "/no/such/file", "disks"},
    };
    for (const std::vector<std::string>& arguments : wrong) {
        EXPECT_EQ(Run(arguments), 2) << testing::PrintToString(arguments);
        EXPECT_THAT(err, StartsWith("kkctl: "));
        EXPECT_EQ(out, "");
    }
    EXPECT_EQ(library.openCount, 0);
}

TEST_F(AppTest, AMistypedCommandIsNamed)
{
    EXPECT_EQ(Run({"disk"}), 2);
    EXPECT_THAT(err, StartsWith("kkctl: there is no command or option disk\n"));
    EXPECT_EQ(Run({"--jsn", "disks"}), 2);
    EXPECT_THAT(err, HasSubstr("--jsn"));
}

TEST_F(AppTest, GlobalOptionsStandBeforeOrBehindTheCommand)
{
    EXPECT_EQ(Run({"--disk", "/dev/null", "--dll", "x.dll", "disks", "--disk", "/dev/zero", "--yes", "--json"}), 0);

    EXPECT_THAT(library.openedDisks, ElementsAre("/dev/null", "/dev/zero"));
    EXPECT_EQ(library.openedDll, "x.dll");
    EXPECT_THAT(out, StartsWith("{"));
}

TEST_F(AppTest, EveryFunctionOfTheHeaderIsLookedForInTheLibrary)
{
    std::ifstream header(KK_PUBLIC_HEADER);
    const std::regex declaration(R"(KK_API KK_STATUS KK_CALL (\w+)\(.*)");
    std::vector<std::string> declared;
    for (std::string line; std::getline(header, line);) {
        if (std::smatch parts; std::regex_match(line, parts, declaration)) {
            declared.push_back(parts[1]);
        }
    }
    std::vector<std::string> lookedFor;
    (void)kkctl::FindCalls("x.dll", [&](const char* name) {
        lookedFor.emplace_back(name);
        return static_cast<void*>(&lookedFor);
    });

    EXPECT_EQ(declared.size(), 22u);
    EXPECT_THAT(lookedFor, testing::UnorderedElementsAreArray(declared));
}

TEST(FindCallsTest, AFunctionThatTheLibraryLacksIsNamed)
{
    const auto allButOne = [](const char* name) {
        static int function = 0;
        return std::string(name) == "KkReboot" ? nullptr : static_cast<void*>(&function);
    };

    EXPECT_THAT([&] { (void)kkctl::FindCalls("x.dll", allButOne); },
                testing::ThrowsMessage<kkctl::KitError>("x.dll has no function KkReboot"));
}

TEST_F(AppTest, ALibraryThatDoesNotLoadIsAFailure)
{
    EXPECT_EQ(Run({"--dll", "broken.dll", "disks"}), 1);

    EXPECT_EQ(err, "kkctl: cannot load broken.dll\n");
}
