#include "tests/machine/process_calls.h"

namespace machine {
namespace {

constexpr char16_t kTool[] = u"C:\\Tools\\tool.exe";

class ProcessTest : public ProcessCallsTest {
protected:
    /// A program that ends after `duration`.
    void AddTool(int64_t duration, uint32_t exitCode = 0)
    {
        machine.processes.SetProgram(
            kTool, [=](const ProcessStart&) { return ProcessCourse{.exitCode = exitCode, .duration = duration}; });
    }
    kk::NtHandle StartTool() { return Start(kTool, u"tool"); }
    int64_t Elapsed() const { return machine.clock.Now() - begin; }

    const int64_t begin = machine.clock.Now();
};

TEST_F(ProcessTest, AStartKeepsEverythingThatItWasAskedFor)
{
    kk::StartupInfo startup = UsualStartup();
    startup.flags = 1;
    startup.showWindow = 5;
    kk::ProcessInformation information = {};
    std::u16string line = u"cmd.exe /c nothing";
    const auto create = Entry(api.createProcessW, "CreateProcessW");

    ASSERT_EQ(create(kCommandInterpreter.data(), line.data(), nullptr, &line, 1, 0x08000000, &line, u"C:\\Work",
                     &startup, &information),
              1);
    open = {information.process, information.thread};
    ASSERT_EQ(machine.processes.All().size(), 1u);
    const ProcessStart& start = machine.processes.All()[0]->start;
    EXPECT_EQ(start.application, kCommandInterpreter);
    EXPECT_EQ(start.commandLine, u"cmd.exe /c nothing");
    EXPECT_TRUE(start.hasSecurity && start.inheritsHandles && start.hasEnvironment);
    EXPECT_EQ(start.directory, u"C:\\Work");
    EXPECT_EQ(start.flags, 0x08000000u);
    EXPECT_EQ(start.startup.size, 104u);
    EXPECT_EQ(start.startup.flags, 1u);
    EXPECT_EQ(start.startup.showWindow, 5u);
    EXPECT_EQ(start.time, begin);
    EXPECT_EQ(information.processId, start.processId);
    EXPECT_NE(information.threadId, information.processId);
    EXPECT_NE(information.thread, information.process);
}

TEST_F(ProcessTest, WhatIsNotAskedForIsRecordedAsMissing)
{
    AddTool(0);
    StartTool();

    const ProcessStart& start = machine.processes.All()[0]->start;
    EXPECT_FALSE(start.hasSecurity || start.inheritsHandles || start.hasEnvironment || start.directory);
}

TEST_F(ProcessTest, TheJournalNamesApplicationCommandLineFlagsAndStartUpRecord)
{
    AddTool(0);
    StartTool();

    const CallRecord* const record = machine.journal.First({.name = "CreateProcessW"});
    ASSERT_NE(record, nullptr);
    EXPECT_EQ(record->object, "C:\\Tools\\tool.exe tool");
    EXPECT_EQ(record->result, 1u);
    ASSERT_EQ(record->input.size(), sizeof(kk::StartupInfo));
    EXPECT_EQ(record->input[0], 104);
}

TEST_F(ProcessTest, TheCommandLineIsWrittenToAndComesBackAsItWas)
{
    AddTool(0);
    static const char16_t readOnly[] = u"tool";
    std::u16string line = readOnly;
    kk::StartupInfo startup = UsualStartup();
    kk::ProcessInformation information = {};
    const auto create = [&](char16_t* text) {
        return Entry(api.createProcessW, "CreateProcessW")(kTool, text, nullptr, nullptr, 0, 0, nullptr, nullptr,
                                                           &startup, &information);
    };

    EXPECT_DEATH(create(const_cast<char16_t*>(readOnly)), "");
    EXPECT_EQ(create(line.data()), 1);
    open = {information.process, information.thread};
    EXPECT_EQ(line, u"tool");
}

TEST_F(ProcessTest, AnUnknownApplicationDoesNotStart)
{
    EXPECT_EQ(Start(kTool, u"tool"), nullptr);
    EXPECT_TRUE(machine.processes.All().empty());
    machine.processes.RemoveProgram(u"c:\\windows\\SYSTEM32\\CMD.EXE");
    EXPECT_EQ(StartCommand(u"format E:"), nullptr);
}

TEST_F(ProcessTest, ApplicationsAreFoundInAnyCase)
{
    AddTool(0, 3);

    EXPECT_EQ(ExitCode(Start(u"c:\\TOOLS\\Tool.exe", u"tool")), 3u);
}

TEST_F(ProcessTest, AWaitMovesTheClockToTheEndOrByTheTimeOut)
{
    AddTool(5 * kSecond, 7);
    const kk::NtHandle process = StartTool();

    EXPECT_EQ(Wait(process, 0), 0x102u);
    EXPECT_EQ(Elapsed(), 0);
    EXPECT_EQ(Wait(process, 2000), 0x102u);
    EXPECT_EQ(Elapsed(), 2 * kSecond);
    EXPECT_EQ(ExitCode(process), 259u);
    EXPECT_EQ(Wait(process, 120'000), 0u);
    EXPECT_EQ(Elapsed(), 5 * kSecond);
    EXPECT_EQ(ExitCode(process), 7u);
    EXPECT_EQ(Wait(process, 1000), 0u);
    EXPECT_EQ(Elapsed(), 5 * kSecond);
}

TEST_F(ProcessTest, AWaitForEverEndsWithTheProcessAndItsThread)
{
    AddTool(500 * kSecond);
    StartTool();

    EXPECT_EQ(Wait(open[1], 0xFFFFFFFF), 0u);
    EXPECT_EQ(Elapsed(), 500 * kSecond);
}

TEST_F(ProcessTest, AProcessWithoutEndTimesOutAndMayNotBeWaitedForForEver)
{
    AddTool(ProcessCourse::kForEver);
    const kk::NtHandle process = StartTool();

    EXPECT_EQ(Wait(process, 120'000), 0x102u);
    EXPECT_EQ(Elapsed(), 120 * kSecond);
    EXPECT_EQ(ExitCode(process), 259u);
    EXPECT_EQ(TakeBreaches().size(), 0u);
    EXPECT_EQ(Wait(process, 0xFFFFFFFF), 0xFFFFFFFFu);
    EXPECT_EQ(TakeBreaches().size(), 1u);
}

TEST_F(ProcessTest, HandlesOfNothingAndOfOtherThingsAreBreaches)
{
    AddTool(0);
    machine.AddDisk(kMiB);
    StartTool();
    const Handle disk(u"\\??\\PhysicalDrive0");
    uint32_t code = 5;

    EXPECT_EQ(Wait(disk.value, 10), 0xFFFFFFFFu);
    EXPECT_EQ(Wait(nullptr, 10), 0xFFFFFFFFu);
    EXPECT_EQ(Elapsed(), 0);
    EXPECT_EQ(Entry(api.getExitCodeProcess, "GetExitCodeProcess")(open[1], &code), 0);
    EXPECT_EQ(code, 5u);
    EXPECT_EQ(TakeBreaches().size(), 3u);
}

TEST_F(ProcessTest, BothHandlesAreAccountedFor)
{
    AddTool(0);
    StartTool();

    EXPECT_EQ(machine.Imbalances(), (std::vector<std::string>{"a handle of process 4096: tool was not closed",
                                                              "a handle of thread 4100: tool was not closed"}));
    CloseAll();
    EXPECT_TRUE(machine.Imbalances().empty());
}

TEST_F(ProcessTest, WorkIsDoneWhenTheClockPassesTheEndThoughNoHandleIsOpen)
{
    uint32_t done = 0;
    machine.processes.SetProgram(
        kTool, [&](const ProcessStart&) { return ProcessCourse{.duration = kSecond, .work = [&] { return ++done; }}; });
    StartTool();
    CloseAll();
    const auto callTheMachine = [] {
        int64_t time = 0;
        NtQuerySystemTime(&time);
    };

    machine.clock.Advance(kSecond - 1);
    callTheMachine();
    EXPECT_EQ(done, 0u);
    machine.clock.Advance(1);
    callTheMachine();
    callTheMachine();
    EXPECT_EQ(done, 1u);
    EXPECT_EQ(machine.processes.All()[0]->exitCode, 1u);
}

TEST(ProcessLifeTest, WorkThatIsNotDoneByTheMachinesEndIsNeverDone)
{
    bool done = false;
    {
        Machine machine;
        machine.processes.SetProgram(kTool, [&](const ProcessStart&) {
            return ProcessCourse{.duration = kSecond, .work = [&] { return done = true, 0u; }};
        });
        kk::ProcessInformation information = {};
        ASSERT_TRUE(machine.processes.Start({.application = kTool, .commandLine = kTool}, information));
        EXPECT_EQ(NtClose(information.thread), kSuccess);
        EXPECT_EQ(NtClose(information.process), kSuccess);
        machine.clock.Advance(2 * kSecond);
    }

    EXPECT_FALSE(done);
}

TEST_F(ProcessTest, ProcessesEndInTheOrderOfTheirEnds)
{
    std::string order;
    machine.processes.SetProgram(kTool, [&](const ProcessStart& start) {
        const auto name = static_cast<char>(start.commandLine[0]);
        const int64_t duration = (start.commandLine[1] - u'0') * kSecond;
        return ProcessCourse{.duration = duration, .work = [&order, name] { return order += name, 0u; }};
    });
    Start(kTool, u"a3");
    Start(kTool, u"b1");
    const kk::NtHandle last = Start(kTool, u"c4");
    Start(kTool, u"d2");

    EXPECT_EQ(Wait(last, 0xFFFFFFFF), 0u);
    EXPECT_EQ(order, "bdac");
}

TEST_F(ProcessTest, WorkThatThrowsIsReportedAndEndsWithOne)
{
    machine.processes.SetProgram(kTool, [](const ProcessStart&) {
        return ProcessCourse{.work = []() -> uint32_t { throw std::runtime_error("out of order"); }};
    });

    EXPECT_EQ(ExitCode(StartTool()), 1u);
    EXPECT_EQ(TakeBreaches(), std::vector<std::string>{"tool: out of order"});
}

TEST_F(ProcessTest, FailedCallsFailAsTheirKindsDo)
{
    AddTool(kSecond);
    const kk::NtHandle process = StartTool();
    const auto fails = [&](auto&& call) {
        machine.faults.FailCall(1);
        return call();
    };
    uint32_t code = 5;

    EXPECT_EQ(fails([&] { return Wait(process, 5000); }), 0xFFFFFFFFu);
    EXPECT_EQ(Elapsed(), 0);
    EXPECT_EQ(fails([&] { return Entry(api.getExitCodeProcess, "GetExitCodeProcess")(process, &code); }), 0);
    EXPECT_EQ(fails([&] { return StartTool(); }), nullptr);
    EXPECT_EQ(machine.processes.All().size(), 1u);
}

TEST_F(ProcessTest, ADelayedCallLetsProcessesEnd)
{
    AddTool(kSecond, 9);
    const kk::NtHandle process = StartTool();
    machine.faults.Delay({.name = "GetExitCodeProcess"}, 1, kSecond);

    EXPECT_EQ(ExitCode(process), 9u);
}

TEST_F(ProcessTest, TheInterpreterEndsWithOneForCommandsThatItDoesNotKnow)
{
    EXPECT_EQ(ExitCode(StartCommand(u"defrag E:")), 1u);
    EXPECT_EQ(ExitCode(StartCommand(u"")), 0u);
}

TEST_F(ProcessTest, TheInterpreterWithoutACommandWaitsForInput)
{
    EXPECT_EQ(Wait(Start(kCommandInterpreter, u"cmd.exe"), 1000), 0x102u);
    EXPECT_EQ(Wait(Start(kCommandInterpreter, u"cmd.exe /k format E:"), 1000), 0x102u);
}

}  // namespace
}  // namespace machine
