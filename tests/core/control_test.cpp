#include <array>
#include <optional>

#include "core/nt.h"
#include "core/scripted_file_test.h"
#include "support/hook.h"

namespace kk {
namespace {

class ControlTest : public ScriptedFileTest {
protected:
    /// The kind of the one call that a request with this code makes.
    machine::CallKind KindOf(uint32_t code)
    {
        device_->control = [](const machine::ControlRequest&) { return machine::ControlAnswer{}; };
        machine.journal.Clear();
        EXPECT_EQ(file_->Control(code, nullptr, 0, nullptr, 0, nullptr), KK_STATUS_SUCCESS);
        EXPECT_EQ(CallCount(), 1u);
        EXPECT_EQ(machine.journal.Records().front().code, code);
        return machine.journal.Records().front().kind;
    }

    KK_STATUS ControlWith(machine::ControlAnswer answer)
    {
        device_->control = [&](const machine::ControlRequest&) { return answer; };
        return file_->Control(0x70000, nullptr, 0, output_.data(), sizeof(output_), &returned_);
    }

    std::array<uint8_t, 8> output_ = {};
    uint32_t returned_ = 0xABABABAB;
};

TEST_F(ControlTest, RequestsOfFileSystemsGoTheFileSystemsWay)
{
    for (const uint32_t code : {0x90064u, 0x90018u, 0x9006Fu, 0x900F0u, 0x901B0u, 0x90000u, 0x9FFFFu}) {
        EXPECT_EQ(KindOf(code), machine::CallKind::FsControl) << std::hex << code;
    }
}

TEST_F(ControlTest, AllOthersGoTheDevicesWay)
{
    for (const uint32_t code : {0x700A0u, 0x70050u, 0x70140u, 0x560000u, 0x6D0008u, 0x80064u, 0xA0064u}) {
        EXPECT_EQ(KindOf(code), machine::CallKind::DeviceControl) << std::hex << code;
    }
}

TEST_F(ControlTest, AllSixteenBitsOfTheDeviceTypeCount)
{
    EXPECT_EQ(KindOf(0x01090064), machine::CallKind::DeviceControl);
    EXPECT_EQ(KindOf(0x80090064), machine::CallKind::DeviceControl);
    EXPECT_EQ(KindOf(0x00000009), machine::CallKind::DeviceControl);
}

TEST_F(ControlTest, CarriesInputAndOutput)
{
    const std::array<uint8_t, 3> input = {1, 2, 3};
    std::vector<uint8_t> received;
    device_->control = [&](const machine::ControlRequest& request) {
        received.assign(request.input.begin(), request.input.end());
        EXPECT_EQ(request.outputRoom, 8u);
        return machine::ControlAnswer{.output = {7, 8, 9}};
    };

    EXPECT_EQ(file_->Control(0x70000, input.data(), 3, output_.data(), 8, &returned_), KK_STATUS_SUCCESS);
    EXPECT_EQ(received, (std::vector<uint8_t>{1, 2, 3}));
    EXPECT_EQ(output_, (std::array<uint8_t, 8>{7, 8, 9}));
    EXPECT_EQ(returned_, 3u);
}

TEST_F(ControlTest, EverySuccessIsZero)
{
    EXPECT_EQ(ControlWith({.status = 0x105}), KK_STATUS_SUCCESS);
    EXPECT_EQ(ControlWith({.status = 0x103}), KK_STATUS_SUCCESS);
    EXPECT_EQ(ControlWith({.status = 0x7FFFFFFF}), KK_STATUS_SUCCESS);
}

TEST_F(ControlTest, AWarningIsKeptAndItsAnswerCounted)
{
    EXPECT_EQ(ControlWith({.status = Status(0x80000005), .output = {1, 2, 3, 4}}), Status(0x80000005));
    EXPECT_EQ(returned_, 4u);
    EXPECT_EQ(output_[3], 4);
}

TEST_F(ControlTest, AFailureIsKept)
{
    EXPECT_EQ(ControlWith({.status = Status(0xC0000010)}), Status(0xC0000010));
    EXPECT_EQ(ControlWith({.status = Status(0xFFFFFFFF)}), Status(0xFFFFFFFF));
}

TEST_F(ControlTest, TheCountOfReturnedBytesIsOptional)
{
    device_->control = [](const machine::ControlRequest&) { return machine::ControlAnswer{.output = {1}}; };

    EXPECT_EQ(file_->Control(0x70000, nullptr, 0, output_.data(), 8, nullptr), KK_STATUS_SUCCESS);
    EXPECT_EQ(output_[0], 1);
}

/// Answers a device control request as no driver of the machine does.
class ControlAnswersTest : public ControlTest {
protected:
    KK_STATUS ControlWith(KK_STATUS status, std::optional<uint64_t> information)
    {
        const Hook<&NtDeviceIoControlFile> hook([&](NtHandle, NtHandle event, void* apc, void* apcContext,
                                                    IoStatusBlock* ioStatus, uint32_t, const void*, uint32_t, void*,
                                                    uint32_t) {
            EXPECT_TRUE(event == nullptr && apc == nullptr && apcContext == nullptr);
            if (information) {
                ioStatus->information = *information;
            }
            return status;
        });
        return file_->Control(0x70000, nullptr, 0, output_.data(), sizeof(output_), &returned_);
    }
};

TEST_F(ControlAnswersTest, ReturnedBytesAreTheLow32BitsOfTheCount)
{
    EXPECT_EQ(ControlWith(KK_STATUS_SUCCESS, 0x1234500000006), KK_STATUS_SUCCESS);
    EXPECT_EQ(returned_, 6u);
}

TEST_F(ControlAnswersTest, ReturnedBytesAreReportedOnFailureToo)
{
    EXPECT_EQ(ControlWith(Status(0xC0000023), 144), Status(0xC0000023));
    EXPECT_EQ(returned_, 144u);
}

TEST_F(ControlAnswersTest, ReturnedBytesAreZeroWhenTheSystemDoesNotTellThem)
{
    EXPECT_EQ(ControlWith(KK_STATUS_SUCCESS, 77), KK_STATUS_SUCCESS);

    EXPECT_EQ(ControlWith(Status(0xC0000022), std::nullopt), Status(0xC0000022));
    EXPECT_EQ(returned_, 0u);
}

TEST_F(ControlAnswersTest, FileSystemRequestsHaveNoEventEither)
{
    const Hook<&NtFsControlFile> hook([&](NtHandle, NtHandle event, void* apc, void* apcContext,
                                          IoStatusBlock* ioStatus, uint32_t code, const void*, uint32_t, void*,
                                          uint32_t) {
        EXPECT_TRUE(event == nullptr && apc == nullptr && apcContext == nullptr);
        EXPECT_EQ(code, 0x90064u);
        EXPECT_EQ(ioStatus->information, 0u);
        return KK_STATUS_SUCCESS;
    });

    EXPECT_EQ(file_->Control(0x90064, nullptr, 0, output_.data(), sizeof(output_), &returned_), KK_STATUS_SUCCESS);
    EXPECT_EQ(returned_, 0u);
}

}  // namespace
}  // namespace kk
