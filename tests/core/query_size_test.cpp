#include <fstream>
#include <string>

#include "core/scripted_file_test.h"
#include "support/shell.h"

namespace kk {
namespace {

class QuerySizeTest : public ScriptedFileTest {
protected:
    void AnswerEndOfFile(int64_t endOfFile, machine::Status status = machine::kSuccess)
    {
        device_->standardInformation = [=](FileStandardInformation& information) {
            information.endOfFile = endOfFile;
            information.allocationSize = 1 << 20;
            return status;
        };
    }

    void AnswerLength(machine::ControlAnswer answer)
    {
        device_->control = [=](const machine::ControlRequest& request) {
            return request.code == kIoctlDiskGetLengthInfo ? answer
                                                           : machine::ControlAnswer{machine::kInvalidParameter};
        };
    }

    uint64_t Size()
    {
        uint64_t size = 0xABABABABABABABAB;
        EXPECT_EQ(file_->QuerySize(&size), KK_STATUS_SUCCESS);
        return size;
    }

    const machine::CallPattern informationCalls_ = {.kind = machine::CallKind::QueryInformation};
    const machine::CallPattern lengthCalls_ = {.kind = machine::CallKind::DeviceControl, .code = 0x7405C};
};

TEST_F(QuerySizeTest, AFilesSizeIsItsEnd)
{
    AnswerEndOfFile(12345);
    AnswerLength({.output = machine::BytesOf(int64_t{999})});

    EXPECT_EQ(Size(), 12345u);
    EXPECT_EQ(machine.journal.Count(lengthCalls_), 0u);
    EXPECT_EQ(machine.journal.First(informationCalls_)->code, 5u);
    EXPECT_EQ(machine.journal.First(informationCalls_)->length, 24u);
}

TEST_F(QuerySizeTest, AFileOfOneByteHasItsSize)
{
    AnswerEndOfFile(1);

    EXPECT_EQ(Size(), 1u);
}

TEST_F(QuerySizeTest, AFileOfTheHostHasItsSize)
{
    const TemporaryFolder folder;
    std::ofstream(folder / "file") << std::string(70000, 'x');
    ASSERT_EQ(OpenDevice(WindowsPath(folder / "file").c_str(), false, file_), KK_STATUS_SUCCESS);

    EXPECT_EQ(Size(), 70000u);
}

TEST_F(QuerySizeTest, AnEndOfZeroAsksForTheLength)
{
    AnswerEndOfFile(0);
    AnswerLength({.output = machine::BytesOf(int64_t{5} << 32)});

    EXPECT_EQ(Size(), uint64_t{5} << 32);
    ASSERT_EQ(machine.journal.Count(lengthCalls_), 1u);
    EXPECT_EQ(machine.journal.First(lengthCalls_)->length, 8u);
    EXPECT_TRUE(machine.journal.First(lengthCalls_)->input.empty());
}

TEST_F(QuerySizeTest, AnEndBelowZeroAsksForTheLength)
{
    AnswerEndOfFile(-1);
    AnswerLength({.output = machine::BytesOf(int64_t{4096})});

    EXPECT_EQ(Size(), 4096u);
}

TEST_F(QuerySizeTest, AFailingInformationAsksForTheLength)
{
    AnswerEndOfFile(777, machine::kInvalidParameter);
    AnswerLength({.output = machine::BytesOf(int64_t{4096})});

    EXPECT_EQ(Size(), 4096u);
    EXPECT_EQ(CallCount(), 2u);
}

TEST_F(QuerySizeTest, AnEndThatComesWithAWarningIsNotUsed)
{
    AnswerEndOfFile(777, machine::kBufferOverflow);
    AnswerLength({.output = machine::BytesOf(int64_t{4096})});

    EXPECT_EQ(Size(), 4096u);
}

TEST_F(QuerySizeTest, ADiskHasItsLength)
{
    machine.AddDisk(3 * kMiB);
    ASSERT_EQ(OpenDevice(u"\\??\\PhysicalDrive0", false, file_), KK_STATUS_SUCCESS);

    EXPECT_EQ(Size(), 3 * kMiB);
}

TEST_F(QuerySizeTest, WhatCannotBeLearntIsZero)
{
    EXPECT_EQ(Size(), 0u);
    EXPECT_EQ(CallCount(), 2u);
}

TEST_F(QuerySizeTest, AnEndOfZeroWithoutALengthIsZero)
{
    AnswerEndOfFile(0);

    EXPECT_EQ(Size(), 0u);
}

TEST_F(QuerySizeTest, TheAnswerToAFailingLengthRequestIsNotUsed)
{
    AnswerLength({.status = machine::kBufferOverflow, .output = machine::BytesOf(int64_t{4096})});

    EXPECT_EQ(Size(), 0u);
}

TEST_F(QuerySizeTest, AnAnswerThatIsMissingIsZero)
{
    AnswerLength({});

    EXPECT_EQ(Size(), 0u);
}

using FlushTest = ScriptedFileTest;

TEST_F(FlushTest, ReportsTheSystemsStatus)
{
    EXPECT_EQ(file_->Flush(), KK_STATUS_SUCCESS);
    device_->flushStatus = machine::kIoDeviceError;
    EXPECT_EQ(file_->Flush(), Status(0xC0000185));

    EXPECT_EQ(machine.journal.Count({.kind = machine::CallKind::Flush, .object = "\\Device\\Scripted"}), 2u);
    EXPECT_EQ(CallCount(), 2u);
}

}  // namespace
}  // namespace kk
