#include <algorithm>
#include <map>
#include <numeric>
#include <optional>

#include "core/nt.h"
#include "core/scripted_file_test.h"
#include "support/hook.h"
#include "support/shell.h"

namespace kk {
namespace {

class WriteAtTest : public ScriptedFileTest {
protected:
    WriteAtTest() { std::iota(data_.begin(), data_.end(), uint8_t{1}); }

    /// The device takes at most so many bytes in a pass.
    void TakeAtMost(size_t most)
    {
        device_->write = [this, most](uint64_t offset, std::span<const uint8_t> from) {
            const size_t count = std::min(most, from.size());
            for (size_t i = 0; i < count; ++i) {
                written_[offset + i] = from[i];
            }
            return machine::IoResult{machine::kSuccess, count};
        };
    }

    /// What the device took, without the offsets.
    std::vector<uint8_t> Written() const
    {
        std::vector<uint8_t> bytes;
        for (const auto& [offset, byte] : written_) {
            bytes.push_back(byte);
        }
        return bytes;
    }

    std::vector<Transfer> Passes() const { return Transfers(machine::CallKind::WriteFile); }

    std::vector<uint8_t> data_ = std::vector<uint8_t>(10);
    std::map<uint64_t, uint8_t> written_;
};

TEST_F(WriteAtTest, WritesEverythingInOnePassWhereTheDeviceCan)
{
    TakeAtMost(100);

    EXPECT_EQ(file_->WriteAt(5, data_.data(), 10), KK_STATUS_SUCCESS);
    EXPECT_EQ(Written(), data_);
    EXPECT_EQ(Passes(), (std::vector<Transfer>{{5, 10}}));
}

TEST_F(WriteAtTest, GoesOnWhereAShortTransferEnded)
{
    TakeAtMost(4);

    EXPECT_EQ(file_->WriteAt(5, data_.data(), 10), KK_STATUS_SUCCESS);
    EXPECT_EQ(Written(), data_);
    EXPECT_EQ(Passes(), (std::vector<Transfer>{{5, 10}, {9, 6}, {13, 2}}));
}

TEST_F(WriteAtTest, PassesOffsetsBeyond32Bits)
{
    TakeAtMost(6);

    EXPECT_EQ(file_->WriteAt(0xFFFFFFFC, data_.data(), 10), KK_STATUS_SUCCESS);
    EXPECT_EQ(Passes(), (std::vector<Transfer>{{0xFFFFFFFC, 10}, {0x100000002, 4}}));
}

TEST_F(WriteAtTest, APassWithoutProgressEndsAsUnsuccessful)
{
    TakeAtMost(0);

    EXPECT_EQ(file_->WriteAt(0, data_.data(), 10), Status(0xC0000001));
    EXPECT_EQ(Passes().size(), 1u);
}

TEST_F(WriteAtTest, APassWithoutProgressAfterOthersEndsAsUnsuccessful)
{
    TakeAtMost(6);
    machine.faults.Shorten({.kind = machine::CallKind::WriteFile}, 2, 0);

    EXPECT_EQ(file_->WriteAt(0, data_.data(), 10), Status(0xC0000001));
    EXPECT_EQ(Passes(), (std::vector<Transfer>{{0, 10}, {6, 4}}));
}

TEST_F(WriteAtTest, AFailureIsReportedAtOnce)
{
    TakeAtMost(4);
    machine.faults.Fail({.kind = machine::CallKind::WriteFile}, 2, 0xC0000185);

    EXPECT_EQ(file_->WriteAt(0, data_.data(), 10), Status(0xC0000185));
    EXPECT_EQ(Passes().size(), 2u);
}

TEST_F(WriteAtTest, AWarningIsAFailure)
{
    TakeAtMost(4);
    machine.faults.Fail({.kind = machine::CallKind::WriteFile}, 1, 0x80000005);

    EXPECT_EQ(file_->WriteAt(0, data_.data(), 10), Status(0x80000005));
    EXPECT_EQ(Passes().size(), 1u);
}

TEST_F(WriteAtTest, NothingToWriteMakesNoCall)
{
    EXPECT_EQ(file_->WriteAt(0, data_.data(), 0), KK_STATUS_SUCCESS);
    EXPECT_EQ(file_->WriteAt(12345, nullptr, 0), KK_STATUS_SUCCESS);
    EXPECT_EQ(CallCount(), 0u);
}

TEST_F(WriteAtTest, NothingToWriteSucceedsAtEveryOffset)
{
    EXPECT_EQ(file_->WriteAt(UINT64_MAX, data_.data(), 0), KK_STATUS_SUCCESS);
    EXPECT_EQ(file_->WriteAt(uint64_t{1} << 63, data_.data(), 0), KK_STATUS_SUCCESS);
    EXPECT_EQ(CallCount(), 0u);
}

// The native call takes -1 for the end of the file and -2 for the current position.
TEST_F(WriteAtTest, OffsetsThatTheSystemWouldTakeForSomethingElseAreRefused)
{
    TakeAtMost(100);

    EXPECT_EQ(file_->WriteAt(UINT64_MAX, data_.data(), 1), Status(0xC000000D));
    EXPECT_EQ(file_->WriteAt(UINT64_MAX - 1, data_.data(), 1), Status(0xC000000D));
    EXPECT_EQ(file_->WriteAt(UINT64_MAX - 1, data_.data(), 10), Status(0xC000000D));
    EXPECT_EQ(file_->WriteAt(uint64_t{1} << 63, data_.data(), 10), Status(0xC000000D));
    EXPECT_EQ(file_->WriteAt(INT64_MAX - 3, data_.data(), 10), Status(0xC000000D));
    EXPECT_EQ(CallCount(), 0u);
}

TEST_F(WriteAtTest, TheLastOffsetsOfAllArePassedOn)
{
    TakeAtMost(4);

    EXPECT_EQ(file_->WriteAt(INT64_MAX - 10, data_.data(), 10), KK_STATUS_SUCCESS);
    EXPECT_EQ(Passes().size(), 3u);
}

TEST_F(WriteAtTest, ReachesADisksBytes)
{
    machine::Disk& disk = machine.AddDisk(1 * kMiB);
    ASSERT_EQ(OpenDevice(u"\\??\\PhysicalDrive0", true, file_), KK_STATUS_SUCCESS);
    const std::vector<uint8_t> sector(512, 0xA7);

    EXPECT_EQ(file_->WriteAt(4096, sector.data(), 512), KK_STATUS_SUCCESS);
    EXPECT_EQ(disk.ReadBytes(4096, 512), sector);
    EXPECT_EQ(disk.ReadBytes(4096 + 512, 512), std::vector<uint8_t>(512));
}

/// The answers of the first passes, in the order in which they are given.
struct PassAnswer {
    KK_STATUS status;
    std::optional<uint64_t> information;  // left alone when there is none
};

class WriteAtAnswersTest : public WriteAtTest {
protected:
    KK_STATUS WriteWith(std::vector<PassAnswer> answers)
    {
        const Hook<&NtWriteFile> hook([&](NtHandle, NtHandle event, void* apc, void* apcContext,
                                          IoStatusBlock* ioStatus, const void*, uint32_t, const int64_t*,
                                          const uint32_t* key) {
            EXPECT_TRUE(event == nullptr && apc == nullptr && apcContext == nullptr && key == nullptr);
            const PassAnswer answer = answers.at(passes_++);
            if (answer.information) {
                ioStatus->information = *answer.information;
            }
            return answer.status;
        });
        return file_->WriteAt(0, data_.data(), 10);
    }

    size_t passes_ = 0;
};

TEST_F(WriteAtAnswersTest, MoreThanWasAskedForCountsAsAll)
{
    EXPECT_EQ(WriteWith({{0, 4}, {0, 7}}), KK_STATUS_SUCCESS);
    EXPECT_EQ(passes_, 2u);
}

TEST_F(WriteAtAnswersTest, CountsBeyond32BitsAreNotCut)
{
    EXPECT_EQ(WriteWith({{0, uint64_t{1} << 32}}), KK_STATUS_SUCCESS);
    EXPECT_EQ(WriteWith({{}, {0, (uint64_t{1} << 32) + 1}}), KK_STATUS_SUCCESS);
    EXPECT_EQ(WriteWith({{}, {}, {0, UINT64_MAX}}), KK_STATUS_SUCCESS);
    EXPECT_EQ(passes_, 3u);
}

TEST_F(WriteAtAnswersTest, ACountThatIsNotGivenIsZero)
{
    EXPECT_EQ(WriteWith({{0, 4}, {0, std::nullopt}}), Status(0xC0000001));
    EXPECT_EQ(passes_, 2u);
}

TEST_F(WriteAtAnswersTest, AnInformationalStatusIsASuccess)
{
    EXPECT_EQ(WriteWith({{Status(0x40000000), 4}, {Status(0x103), 6}}), KK_STATUS_SUCCESS);
    EXPECT_EQ(passes_, 2u);
}

}  // namespace
}  // namespace kk
