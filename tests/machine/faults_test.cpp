#include "machine/faults.h"

#include <thread>

#include "machine/gate.h"
#include "tests/machine/native_calls.h"

namespace machine {
namespace {

const std::u16string kDrive = u"\\??\\PhysicalDrive0";

class FaultsTest : public MachineTest {
protected:
    FaultsTest() { machine.AddDisk(kMiB); }

    void* Take() { return RtlAllocateHeap(&machine.heap, 0, 8); }
};

TEST_F(FaultsTest, TheNthCallThatFitsFailsAndLeavesItsOutputsAlone)
{
    const Handle disk(kDrive);
    machine.faults.Fail({.name = "NtReadFile", .object = "Drive0"}, 2, 0xC0000185);

    EXPECT_EQ(disk.Read(0, 512).status, kSuccess);
    const Outcome failed = disk.Read(0, 512);
    EXPECT_EQ(failed.status, kIoDeviceError);
    EXPECT_EQ(failed.output, std::vector<uint8_t>(512, 0xEE));
    EXPECT_EQ(disk.Read(0, 512).status, kSuccess);
    ASSERT_NE(machine.faults.Struck(), nullptr);
    EXPECT_EQ(machine.faults.Struck()->name, "NtReadFile");
    EXPECT_TRUE(machine.journal.FindAll({.name = "NtReadFile"})[1].struck);
}

TEST_F(FaultsTest, FailFromGoesOnForEver)
{
    const Handle disk(kDrive);
    machine.faults.FailFrom({.kind = CallKind::DeviceControl, .code = 0x7405C}, 2, 0xC0000010);

    EXPECT_EQ(disk.Control(0x7405C, 8).status, kSuccess);
    EXPECT_EQ(disk.Control(0x7405C, 8).status, kInvalidDeviceRequest);
    EXPECT_EQ(disk.Control(0x7405C, 8).status, kInvalidDeviceRequest);
    EXPECT_EQ(disk.Control(0x700A0, 40).status, kSuccess);
    machine.faults.Clear();
    EXPECT_EQ(disk.Control(0x7405C, 8).status, kSuccess);
}

TEST_F(FaultsTest, TransfersCanBeShortenedEvenToNothing)
{
    const Handle disk(kDrive, kForWriting);
    machine.faults.Shorten({.name = "NtReadFile"}, 1, 512);
    machine.faults.Shorten({.name = "NtWriteFile"}, 1, 0);

    const Outcome read = disk.Read(0, 2048);
    const Outcome written = disk.Write(0, std::vector<uint8_t>(512, 1));

    EXPECT_EQ(read.information, 512u);
    EXPECT_EQ(read.output[511], 0);
    EXPECT_EQ(read.output[512], 0xEE);
    EXPECT_EQ(written.status, kSuccess);
    EXPECT_EQ(written.information, 0u);
    EXPECT_EQ(machine.FindDisk(0)->ReadBytes(0, 1)[0], 0);
}

TEST_F(FaultsTest, ADelayMovesTheMachinesClock)
{
    const int64_t before = machine.clock.Now();
    machine.faults.Delay({.kind = CallKind::Allocate}, 1, 500);

    RtlFreeHeap(&machine.heap, 0, Take());

    EXPECT_EQ(machine.clock.Now(), before + 500);
}

TEST_F(FaultsTest, EachKindFailsInItsOwnWay)
{
    void* module = nullptr;
    const std::u16string name = u"kernel32.dll";
    const kk::UnicodeString library = {24, 26, name.c_str()};
    const kk::AnsiString entry = {11, 12, "CloseHandle"};

    machine.faults.FailCallsFrom(1);
    EXPECT_EQ(Take(), nullptr);
    EXPECT_EQ(Handle(kDrive).created.status, kUnexpectedIoError);
    EXPECT_EQ(LdrLoadDll(nullptr, nullptr, &library, &module), kDllNotFound);
    EXPECT_EQ(module, nullptr);
    machine.faults.Clear();
    EXPECT_EQ(LdrLoadDll(nullptr, nullptr, &library, &module), kSuccess);
    machine.faults.FailCall(1);
    void* address = nullptr;
    EXPECT_EQ(LdrGetProcedureAddress(module, &entry, 0, &address), kEntryPointMissing);
    EXPECT_EQ(LdrGetProcedureAddress(module, &entry, 0, &address), kSuccess);
    EXPECT_EQ(NaturalFailure(CallKind::Win32Error), 31u);
    EXPECT_EQ(NaturalFailure(CallKind::ComMethod), 0x8000FFFFu);
}

TEST_F(FaultsTest, ASweepMeetsEveryFaultableCallOnce)
{
    std::vector<std::string> struck;
    for (uint64_t n = 1;; ++n) {
        machine.faults.FailCall(n);
        void* const block = Take();
        int64_t time = 0;
        EXPECT_EQ(NtQuerySystemTime(&time), kSuccess);
        {
            const Handle disk(kDrive);
            if (disk.created.status == kSuccess) {
                disk.Read(0, 512);
            }
        }
        if (block != nullptr) {
            RtlFreeHeap(&machine.heap, 0, block);
        }
        if (machine.faults.Struck() == nullptr) {
            EXPECT_EQ(machine.faults.FaultableCalls(), 3u);
            break;
        }
        struck.push_back(machine.faults.Struck()->name);
    }

    EXPECT_EQ(struck, (std::vector<std::string>{"RtlAllocateHeap", "NtCreateFile", "NtReadFile"}));
}

TEST_F(FaultsTest, TheJournalKeepsWhatWasAskedForAndAnswered)
{
    const OpenHow how = {.access = 0x120089, .share = 3, .options = 0x860};
    {
        const Handle disk(kDrive, how);
        disk.Read(512, 1024);
        disk.Control(0x7405C, 8, {1, 2, 3});
    }

    const CallRecord* const open = machine.journal.First({.name = "NtCreateFile"});
    ASSERT_NE(open, nullptr);
    EXPECT_EQ(open->object, "\\??\\PhysicalDrive0");
    EXPECT_EQ(open->access, 0x120089u);
    EXPECT_EQ(open->share, 3u);
    EXPECT_EQ(open->disposition, kk::kFileOpen);
    EXPECT_EQ(open->options, 0x860u);
    EXPECT_EQ(open->fileAttributes, 0x80u);
    EXPECT_EQ(open->objectAttributes, 0x40u);
    EXPECT_EQ(open->information, kInformationOpened);
    const CallRecord* const read = machine.journal.First({.kind = CallKind::ReadFile});
    EXPECT_EQ(read->offset, 512u);
    EXPECT_EQ(read->length, 1024u);
    EXPECT_EQ(read->information, 1024u);
    EXPECT_LE(read->enteredNs, read->leftNs);
    const CallRecord* const control = machine.journal.First({.code = 0x7405C});
    EXPECT_EQ(control->input, (std::vector<uint8_t>{1, 2, 3}));
    EXPECT_TRUE(machine.journal.Before({.name = "NtReadFile"}, {.name = "NtClose"}));
    EXPECT_FALSE(machine.journal.Before({.name = "NtClose"}, {.name = "NtReadFile"}));
    EXPECT_EQ(machine.journal.Count({.object = "PhysicalDrive0"}), 4u);
    EXPECT_NE(machine.journal.Text().find("NtReadFile [\\??\\PhysicalDrive0] at 512 for 1024"), std::string::npos);
}

TEST_F(FaultsTest, WithoutRecordingCallsStillCount)
{
    machine.journal.SetRecording(false);
    machine.faults.FailCall(2);

    RtlFreeHeap(&machine.heap, 0, Take());

    EXPECT_EQ(Take(), nullptr);
    EXPECT_TRUE(machine.journal.Records().empty());
}

TEST_F(FaultsTest, WhatABodyThrowsIsABreachAndAFailedCall)
{
    CallRecord call;
    call.kind = CallKind::Win32Error;
    call.name = "Service";

    const uint32_t result =
        PassGate(machine, call, [](CallRecord&) -> uint32_t { throw std::runtime_error("out of ideas"); });

    EXPECT_EQ(result, 31u);
    EXPECT_EQ(TakeBreaches().size(), 1u);
}

TEST_F(FaultsTest, OtherThreadsTakePartOnceInstalled)
{
    std::thread thread([&] {
        const ThreadBlock block = machine.JoinThread();
        EXPECT_EQ(Handle(kDrive).Read(0, 512).status, kSuccess);
    });
    thread.join();

    EXPECT_EQ(machine.journal.Count({.name = "NtReadFile"}), 1u);
}

}  // namespace
}  // namespace machine
