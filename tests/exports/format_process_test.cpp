// How the format command is started, waited for and judged.

#include <algorithm>
#include <climits>

#include "exports/support/format_test.h"

namespace {

using testing::ElementsAre;
using testing::StartsWith;

/// The volume is E:, and the interpreter ends at once with 0.
class FormatProcessTest : public FormatTest {
protected:
    FormatProcessTest()
    {
        GiveLetter(u'E');
        ReplaceInterpreter({});
    }

    /// The command line that these arguments give.
    std::string LineOf(const FormatArguments& arguments)
    {
        EXPECT_EQ(Format(arguments), 0);
        return CommandLine();
    }
};

TEST_F(FormatProcessTest, TheCommandLineNamesLetterFileSystemAnswerAndLabel)
{
    SHOWS(KkFormatPartition, KK_STATUS_SUCCESS,
          "the command line names letter, file system, quick format, the answer to questions, and the label");

    EXPECT_EQ(LineOf({.fileSystem = u"exFAT", .label = u"Data", .quick = 1}),
              "cmd.exe /c format E: /FS:exFAT /Q /Y /V:Data");
    EXPECT_EQ(LineOf({.fileSystem = u"FAT32", .label = u"Data", .quick = 0}),
              "cmd.exe /c format E: /FS:FAT32 /Y /V:Data");
}

TEST_F(FormatProcessTest, NtfsAndNoLabelAreWhatNullAndEmptyTextsMean)
{
    SHOWS(KkFormatPartition, KK_STATUS_SUCCESS, "null and empty texts mean NTFS and no label");

    const std::string line = "cmd.exe /c format E: /FS:NTFS /Y";

    EXPECT_EQ(LineOf({.fileSystem = nullptr, .label = u"", .quick = 0}), line);
    EXPECT_EQ(LineOf({.fileSystem = u"", .label = nullptr, .quick = 0}), line);
    EXPECT_EQ(LineOf({.fileSystem = u"", .label = u"x", .quick = 0}), line + " /V:x");
}

TEST_F(FormatProcessTest, AnythingButZeroIsQuick)
{
    SHOWS(KkFormatPartition, KK_STATUS_SUCCESS, "any number but 0 means a quick format");

    for (const int32_t quick : {1, 2, -1, 0x100, 0x10000, INT_MIN}) {
        EXPECT_EQ(LineOf({.quick = quick}), "cmd.exe /c format E: /FS:NTFS /Q /Y");
    }
}

TEST_F(FormatProcessTest, TextsGoInAsTheyAre)
{
    SHOWS(KkFormatPartition, KK_STATUS_SUCCESS, "texts go into the command line as they are, unquoted");

    EXPECT_EQ(LineOf({.fileSystem = u"my fs", .label = u"two  words \"quoted\" & more ", .quick = 1}),
              "cmd.exe /c format E: /FS:my fs /Q /Y /V:two  words \"quoted\" & more ");
    EXPECT_EQ(LineOf({.label = u" "}), "cmd.exe /c format E: /FS:NTFS /Q /Y /V: ");
    EXPECT_EQ(LineOf({.label = u"B\u00FCcher"}), "cmd.exe /c format E: /FS:NTFS /Q /Y /V:B\u00FCcher");
}

TEST_F(FormatProcessTest, TheCommandLineIsCutTo399Units)
{
    SHOWS(KkFormatPartition, KK_STATUS_SUCCESS, "the command line is cut to 399 units");

    const std::string head = "cmd.exe /c format E: /FS:NTFS /Y /V:";
    const size_t room = 399 - head.size();
    const auto lineWith = [&](size_t length) {
        return LineOf({.label = std::u16string(length, u'n').c_str(), .quick = 0});
    };

    EXPECT_EQ(lineWith(500), head + std::string(room, 'n'));
    EXPECT_EQ(lineWith(room + 1), head + std::string(room, 'n'));
    EXPECT_EQ(lineWith(room), head + std::string(room, 'n'));
    EXPECT_EQ(lineWith(room - 1), head + std::string(room - 1, 'n'));
}

TEST_F(FormatProcessTest, ALongFileSystemNameLeavesNoRoomForTheRest)
{
    SHOWS(KkFormatPartition, KK_STATUS_SUCCESS, "a long file system name leaves no room for what follows");

    const std::string head = "cmd.exe /c format E: /FS:";
    const auto lineWith = [&](size_t length) {
        return LineOf({.fileSystem = std::u16string(length, u'f').c_str(), .label = u"Data", .quick = 1});
    };

    EXPECT_EQ(lineWith(500), head + std::string(399 - head.size(), 'f'));
    EXPECT_EQ(lineWith(399 - head.size() - 4), head + std::string(399 - head.size() - 4, 'f') + " /Q ");
}

TEST_F(FormatProcessTest, TheInterpreterIsStartedHiddenAndWithNothingOfItsOwn)
{
    SHOWS(KkFormatPartition, KK_STATUS_SUCCESS,
          "the interpreter is started without a window, with no handles or environment of its own");

    EXPECT_EQ(Format(), 0);

    const machine::ProcessStart& start = Started();
    EXPECT_EQ(start.application, u"C:\\Windows\\system32\\cmd.exe");
    EXPECT_EQ(start.flags, 0x08000000u);
    EXPECT_FALSE(start.inheritsHandles);
    EXPECT_FALSE(start.hasSecurity);
    EXPECT_FALSE(start.hasEnvironment);
    EXPECT_EQ(start.directory, std::nullopt);
    EXPECT_EQ(start.startup.size, 104u);
    EXPECT_EQ(start.startup.flags, 1u);
    EXPECT_EQ(start.startup.showWindow, 0);
    EXPECT_EQ(start.startup.reserved, nullptr);
    EXPECT_EQ(start.startup.desktop, nullptr);
    EXPECT_EQ(start.startup.title, nullptr);
    EXPECT_EQ(start.startup.reserved2Size, 0);
    EXPECT_EQ(start.startup.reserved2, nullptr);
}

TEST_F(FormatProcessTest, IsWaitedForAskedAndClosedThreadFirst)
{
    SHOWS(KkFormatPartition, KK_STATUS_SUCCESS,
          "the command is waited for, then asked for its exit code; thread and process are closed");

    EXPECT_EQ(Format({.fileSystem = u"FAT"}), 0);

    EXPECT_THAT(Kernel32Calls(),
                ElementsAre("GetSystemDirectoryW",
                            "CreateProcessW C:\\Windows\\system32\\cmd.exe "
                            "cmd.exe /c format E: /FS:FAT /Q /Y",
                            StartsWith("WaitForSingleObject process "), StartsWith("GetExitCodeProcess process "),
                            StartsWith("CloseHandle thread "), StartsWith("CloseHandle process ")));
    EXPECT_EQ(machine.journal.First({.name = "WaitForSingleObject"})->length, 120'000u);
    EXPECT_EQ(machine.journal.First({.name = "GetSystemDirectoryW"})->length, 290u);
}

TEST_F(FormatProcessTest, OnlyTheExitCodeZeroIsASuccess)
{
    SHOWS(KkFormatPartition, KK_STATUS_UNSUCCESSFUL, "every exit code but 0 is a failure");
    SHOWS(KkFormatPartition, KK_STATUS_SUCCESS, "the exit code 0 is a success");

    for (const uint32_t code : {1u, 4u, 259u, 0x100u, 0x10000u, 0x80000000u, 0xFFFFFFFFu}) {
        ReplaceInterpreter({.exitCode = code});
        EXPECT_EQ(Format(), KK_STATUS_UNSUCCESSFUL) << code;
    }
    ReplaceInterpreter({.exitCode = 0});
    EXPECT_EQ(Format(), 0);
}

TEST_F(FormatProcessTest, IsGivenTwoMinutes)
{
    SHOWS(KkFormatPartition, KK_STATUS_SUCCESS, "a command that ends after exactly two minutes is a success");
    SHOWS(KkFormatPartition, KK_STATUS_UNSUCCESSFUL, "one that ends any later is a failure");

    const int64_t begin = machine.clock.Now();

    ReplaceInterpreter({.duration = 120 * kSecond});
    EXPECT_EQ(Format(), 0);
    EXPECT_EQ(machine.clock.Now() - begin, 120 * kSecond);
    ReplaceInterpreter({.duration = 120 * kSecond + 1});
    EXPECT_EQ(Format(), KK_STATUS_UNSUCCESSFUL);
    EXPECT_EQ(machine.clock.Now() - begin, 240 * kSecond);
}

TEST_F(FormatProcessTest, TheWaitsResultDoesNotMatter)
{
    SHOWS(KkFormatPartition, KK_STATUS_SUCCESS, "the result of the wait does not matter when the command has ended");

    machine.faults.Fail({.name = "WaitForSingleObject"}, 1, 0xFFFFFFFF);

    EXPECT_EQ(Format(), 0) << "the process has ended all the same";
}

TEST_F(FormatProcessTest, AnExitCodeThatCannotBeLearntIsAFailure)
{
    SHOWS(KkFormatPartition, KK_STATUS_UNSUCCESSFUL, "the exit code cannot be learnt; the handles are closed");

    machine.faults.Fail({.name = "GetExitCodeProcess"}, 1, 0);

    EXPECT_EQ(Format(), KK_STATUS_UNSUCCESSFUL);

    EXPECT_EQ(machine.journal.Count({.name = "CloseHandle"}), 2u);
}

TEST_F(FormatProcessTest, AnInterpreterThatDoesNotStartIsNotWaitedFor)
{
    SHOWS(KkFormatPartition, KK_STATUS_UNSUCCESSFUL, "the interpreter does not start, and is not waited for");

    machine.processes.RemoveProgram(machine::kCommandInterpreter);

    EXPECT_EQ(Format(), KK_STATUS_UNSUCCESSFUL);

    EXPECT_THAT(Kernel32Calls(), ElementsAre("GetSystemDirectoryW", StartsWith("CreateProcessW ")));
}

decltype(kk::Kernel32Api::createProcessW) trueCreateProcess;

/// Succeeds with another number than 1.
template <typename... Arguments>
int32_t KK_CALL CreateProcessAnsweringOddly(Arguments... arguments)
{
    return trueCreateProcess(arguments...) != 0 ? INT_MIN : 0;
}

TEST_F(FormatProcessTest, EveryAnswerButZeroMeansThatTheProcessStarted)
{
    SHOWS(KkFormatPartition, KK_STATUS_SUCCESS, "any answer but 0 means that the interpreter started");

    void* const kernel32 = machine.modules.Load(u"kernel32.dll");
    trueCreateProcess =
        reinterpret_cast<decltype(trueCreateProcess)>(machine.modules.FindEntry(kernel32, "CreateProcessW"));
    const decltype(trueCreateProcess) oddly = &CreateProcessAnsweringOddly;
    ReplaceEntry("CreateProcessW", oddly);

    EXPECT_EQ(Format(), 0);
}

std::u16string systemFolder;
uint32_t systemFolderAnswer;

/// Writes what fits of `systemFolder`, and answers whatever a test wants.
uint32_t KK_CALL TellSystemFolder(char16_t* buffer, uint32_t units)
{
    const std::u16string fitting = systemFolder.substr(0, units - 1);
    std::copy_n(fitting.c_str(), fitting.size() + 1, buffer);
    return systemFolderAnswer;
}

TEST_F(FormatProcessTest, TheInterpreterIsTakenFromTheSystemFolderUpToItsLongestName)
{
    SHOWS(KkFormatPartition, KK_STATUS_SUCCESS,
          "the interpreter is taken from the system folder, whose name may be up to 289 units long");

    ReplaceEntry("GetSystemDirectoryW", &TellSystemFolder);
    for (const std::u16string& name : {std::u16string(u"S:\\System"), u"S:\\" + std::u16string(286, u's'),
                                       std::u16string(u"S:\\"), std::u16string(u"S")}) {
        systemFolder = name;
        systemFolderAnswer = static_cast<uint32_t>(name.size());
        machine.processes.SetProgram(name + u"\\cmd.exe", [](const auto&) { return machine::ProcessCourse{}; });

        EXPECT_EQ(Format(), 0);
        EXPECT_EQ(Started().application, name + u"\\cmd.exe");
    }
}

TEST_F(FormatProcessTest, WithoutASystemFolderNothingIsStarted)
{
    SHOWS(KkFormatPartition, KK_STATUS_UNSUCCESSFUL,
          "the system folder cannot be learnt, or its name is too long; nothing is started");

    ReplaceEntry("GetSystemDirectoryW", &TellSystemFolder);
    systemFolder = u"S:\\System";
    for (const uint32_t answer : {0u, 290u, 291u, 300u, 0xFFFFFFFFu}) {
        systemFolderAnswer = answer;
        EXPECT_EQ(Format(), KK_STATUS_UNSUCCESSFUL) << answer;
    }

    EXPECT_FALSE(HasStartedAProcess());
}

}  // namespace
