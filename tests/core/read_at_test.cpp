#include <algorithm>
#include <fstream>
#include <numeric>
#include <string>

#include "core/nt.h"
#include "core/scripted_file_test.h"
#include "support/hook.h"
#include "support/shell.h"

namespace kk {
namespace {

class ReadAtTest : public ScriptedFileTest {
protected:
    /// Every byte of the device is the low byte of its offset; a pass gives at most so many.
    void ServeAtMost(size_t most)
    {
        device_->read = [most](uint64_t offset, std::span<uint8_t> into) {
            const size_t count = std::min(most, into.size());
            std::iota(into.begin(), into.begin() + static_cast<ptrdiff_t>(count), static_cast<uint8_t>(offset));
            return machine::IoResult{machine::kSuccess, count};
        };
    }

    /// Every pass transfers nothing and claims `information` bytes.
    void Claim(uint64_t information)
    {
        device_->read = [information](uint64_t, std::span<uint8_t>) {
            return machine::IoResult{machine::kSuccess, information};
        };
    }

    std::vector<Transfer> Passes() const { return Transfers(machine::CallKind::ReadFile); }

    std::vector<uint8_t> buffer_ = std::vector<uint8_t>(10, 0xEE);
};

TEST_F(ReadAtTest, FillsTheBufferInOnePassWhereTheDeviceCan)
{
    ServeAtMost(100);

    EXPECT_EQ(file_->ReadAt(5, buffer_.data(), 10), KK_STATUS_SUCCESS);
    EXPECT_EQ(buffer_, (std::vector<uint8_t>{5, 6, 7, 8, 9, 10, 11, 12, 13, 14}));
    EXPECT_EQ(Passes(), (std::vector<Transfer>{{5, 10}}));
}

TEST_F(ReadAtTest, GoesOnWhereAShortTransferEnded)
{
    ServeAtMost(4);

    EXPECT_EQ(file_->ReadAt(5, buffer_.data(), 10), KK_STATUS_SUCCESS);
    EXPECT_EQ(buffer_, (std::vector<uint8_t>{5, 6, 7, 8, 9, 10, 11, 12, 13, 14}));
    EXPECT_EQ(Passes(), (std::vector<Transfer>{{5, 10}, {9, 6}, {13, 2}}));
}

TEST_F(ReadAtTest, PassesOffsetsBeyond32Bits)
{
    ServeAtMost(6);

    EXPECT_EQ(file_->ReadAt(0xFFFFFFFC, buffer_.data(), 10), KK_STATUS_SUCCESS);
    EXPECT_EQ(Passes(), (std::vector<Transfer>{{0xFFFFFFFC, 10}, {0x100000002, 4}}));
}

TEST_F(ReadAtTest, APassWithoutProgressEndsWithEndOfFile)
{
    Claim(0);

    EXPECT_EQ(file_->ReadAt(0, buffer_.data(), 10), Status(0xC0000011));
    EXPECT_EQ(Passes().size(), 1u);
}

TEST_F(ReadAtTest, APassWithoutProgressAfterOthersEndsWithEndOfFile)
{
    ServeAtMost(6);
    machine.faults.Shorten({.kind = machine::CallKind::ReadFile}, 2, 0);

    EXPECT_EQ(file_->ReadAt(0, buffer_.data(), 10), Status(0xC0000011));
    EXPECT_EQ(Passes(), (std::vector<Transfer>{{0, 10}, {6, 4}}));
    EXPECT_EQ(buffer_, (std::vector<uint8_t>{0, 1, 2, 3, 4, 5, 0xEE, 0xEE, 0xEE, 0xEE}));
}

TEST_F(ReadAtTest, EndsWithEndOfFileWhenTheFileIsShorter)
{
    const TemporaryFolder folder;
    std::ofstream(folder / "short") << "abcdef";
    ASSERT_EQ(OpenDevice(WindowsPath(folder / "short").c_str(), false, file_), KK_STATUS_SUCCESS);

    EXPECT_EQ(file_->ReadAt(2, buffer_.data(), 10), Status(0xC0000011));
    EXPECT_EQ(std::string(buffer_.begin(), buffer_.begin() + 4), "cdef");
    EXPECT_EQ(file_->ReadAt(6, buffer_.data(), 1), Status(0xC0000011));
    EXPECT_EQ(file_->ReadAt(0, buffer_.data(), 6), KK_STATUS_SUCCESS);
}

TEST_F(ReadAtTest, AFailureIsReportedAtOnce)
{
    ServeAtMost(4);
    machine.faults.Fail({.kind = machine::CallKind::ReadFile}, 2, 0xC0000185);

    EXPECT_EQ(file_->ReadAt(0, buffer_.data(), 10), Status(0xC0000185));
    EXPECT_EQ(Passes().size(), 2u);
}

TEST_F(ReadAtTest, AWarningIsAFailure)
{
    ServeAtMost(4);
    machine.faults.Fail({.kind = machine::CallKind::ReadFile}, 1, 0x80000005);

    EXPECT_EQ(file_->ReadAt(0, buffer_.data(), 10), Status(0x80000005));
    EXPECT_EQ(Passes().size(), 1u);
}

TEST_F(ReadAtTest, NothingToReadMakesNoCall)
{
    EXPECT_EQ(file_->ReadAt(0, buffer_.data(), 0), KK_STATUS_SUCCESS);
    EXPECT_EQ(file_->ReadAt(12345, nullptr, 0), KK_STATUS_SUCCESS);
    EXPECT_EQ(CallCount(), 0u);
    EXPECT_EQ(buffer_, std::vector<uint8_t>(10, 0xEE));
}

TEST_F(ReadAtTest, NothingToReadSucceedsAtEveryOffset)
{
    EXPECT_EQ(file_->ReadAt(UINT64_MAX, buffer_.data(), 0), KK_STATUS_SUCCESS);
    EXPECT_EQ(file_->ReadAt(uint64_t{1} << 63, buffer_.data(), 0), KK_STATUS_SUCCESS);
    EXPECT_EQ(CallCount(), 0u);
}

// The native call takes -1 for the end of the file and -2 for the current position.
TEST_F(ReadAtTest, OffsetsThatTheSystemWouldTakeForSomethingElseAreRefused)
{
    ServeAtMost(100);

    EXPECT_EQ(file_->ReadAt(UINT64_MAX, buffer_.data(), 1), Status(0xC000000D));
    EXPECT_EQ(file_->ReadAt(UINT64_MAX - 1, buffer_.data(), 1), Status(0xC000000D));
    EXPECT_EQ(file_->ReadAt(UINT64_MAX - 1, buffer_.data(), 10), Status(0xC000000D));
    EXPECT_EQ(file_->ReadAt(uint64_t{1} << 63, buffer_.data(), 10), Status(0xC000000D));
    EXPECT_EQ(file_->ReadAt(INT64_MAX - 3, buffer_.data(), 10), Status(0xC000000D));
    EXPECT_EQ(CallCount(), 0u);
}

TEST_F(ReadAtTest, TheLastOffsetsOfAllArePassedOn)
{
    ServeAtMost(4);

    EXPECT_EQ(file_->ReadAt(INT64_MAX - 10, buffer_.data(), 10), KK_STATUS_SUCCESS);
    EXPECT_EQ(Passes().size(), 3u);
}

/// The answers of the first passes, in the order in which they are given.
struct PassAnswer {
    KK_STATUS status;
    std::optional<uint64_t> information;  // left alone when there is none
};

class ReadAtAnswersTest : public ReadAtTest {
protected:
    KK_STATUS ReadWith(std::vector<PassAnswer> answers)
    {
        const Hook<&NtReadFile> hook([&](NtHandle, NtHandle event, void* apc, void* apcContext, IoStatusBlock* ioStatus,
                                         void*, uint32_t, const int64_t*, const uint32_t* key) {
            EXPECT_TRUE(event == nullptr && apc == nullptr && apcContext == nullptr && key == nullptr);
            const PassAnswer answer = answers.at(passes_++);
            if (answer.information) {
                ioStatus->information = *answer.information;
            }
            return answer.status;
        });
        return file_->ReadAt(0, buffer_.data(), 10);
    }

    size_t passes_ = 0;
};

TEST_F(ReadAtAnswersTest, MoreThanWasAskedForCountsAsAll)
{
    EXPECT_EQ(ReadWith({{0, 4}, {0, 7}}), KK_STATUS_SUCCESS);
    EXPECT_EQ(passes_, 2u);
}

TEST_F(ReadAtAnswersTest, CountsBeyond32BitsAreNotCut)
{
    EXPECT_EQ(ReadWith({{0, uint64_t{1} << 32}}), KK_STATUS_SUCCESS);
    EXPECT_EQ(ReadWith({{}, {0, (uint64_t{1} << 32) + 1}}), KK_STATUS_SUCCESS);
    EXPECT_EQ(ReadWith({{}, {}, {0, UINT64_MAX}}), KK_STATUS_SUCCESS);
    EXPECT_EQ(passes_, 3u);
}

TEST_F(ReadAtAnswersTest, ACountThatIsNotGivenIsZero)
{
    EXPECT_EQ(ReadWith({{0, 4}, {0, std::nullopt}}), Status(0xC0000011));
    EXPECT_EQ(passes_, 2u);
}

TEST_F(ReadAtAnswersTest, AnInformationalStatusIsASuccess)
{
    EXPECT_EQ(ReadWith({{Status(0x40000000), 4}, {Status(0x103), 6}}), KK_STATUS_SUCCESS);
    EXPECT_EQ(passes_, 2u);
}

}  // namespace
}  // namespace kk
