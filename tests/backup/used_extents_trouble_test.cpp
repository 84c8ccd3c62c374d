#include <limits>

#include "bitmap_volume.h"

// Volumes that answer with failures, or with answers that make no sense.

namespace {

constexpr int32_t kMakesNoSense = Status(0xC0000001);

/// A piece of a bitmap as it goes over the wire.
machine::ControlAnswer Piece(machine::Status status, int64_t start, int64_t bits, const std::vector<uint8_t>& bytes)
{
    machine::ControlAnswer answer;
    answer.status = status;
    answer.output = machine::BytesOf(kk::VolumeBitmapHeader{start, bits});
    answer.output.insert(answer.output.end(), bytes.begin(), bytes.end());
    return answer;
}

class UsedExtentsTroubleTest : public UsedExtentsTest {
protected:
    /// The volume gives these answers one after the other; a further request fails the test.
    void Script(std::vector<machine::ControlAnswer> answers)
    {
        device->control = [answers = std::move(answers), next = size_t{0}](const auto&) mutable {
            if (next == answers.size()) {
                ADD_FAILURE() << "one request too many";
                return machine::ControlAnswer{machine::kIoDeviceError};
            }
            return answers[next++];
        };
    }
};

TEST_F(UsedExtentsTroubleTest, WithoutAClusterSizeNothingIsOpened)
{
    EXPECT_EQ(Get(0), Status(0xC000000D));
    EXPECT_TRUE(machine.journal.Records().empty());
}

TEST_F(UsedExtentsTroubleTest, AFailingOpenIsReported)
{
    EXPECT_EQ(kk::GetVolumeUsedExtents(u"\\Device\\Missing", 4096, list), Status(0xC0000034));

    machine.faults.Fail({.kind = machine::CallKind::CreateFile}, 1, 0xC0000022);
    EXPECT_EQ(Get(), Status(0xC0000022));
}

TEST_F(UsedExtentsTroubleTest, WithoutABufferNothingIsAsked)
{
    machine.faults.Fail({.kind = machine::CallKind::Allocate}, 2, 0);

    EXPECT_EQ(Get(), Status(0xC0000001));
    EXPECT_TRUE(Asked().empty());
    EXPECT_EQ(machine.handles.OpenCount(), 0u);
    EXPECT_EQ(machine.heap.LiveBlocks(), 0u);
}

TEST_F(UsedExtentsTroubleTest, AnObjectWithoutMemoryFailsTheOpen)
{
    machine.faults.Fail({.kind = machine::CallKind::Allocate}, 1, 0);

    EXPECT_EQ(Get(), Status(0xC0000017));
    EXPECT_EQ(machine.handles.OpenCount(), 0u);
}

TEST_F(UsedExtentsTroubleTest, AFailingRequestIsReported)
{
    for (const uint32_t status : {0xC0000010u, 0xC000000Du, 0xC0000185u, 0x80000006u, 0x80000016u}) {
        Script({{Status(status)}});

        EXPECT_EQ(Get(), Status(status));
        EXPECT_EQ(machine.handles.OpenCount(), 0u);
        EXPECT_EQ(machine.heap.LiveBlocks(), 0u);
    }
}

TEST_F(UsedExtentsTroubleTest, AFailingLaterRequestLeavesTheRunsSoFar)
{
    Script({Piece(machine::kBufferOverflow, 0, 100, {0x0F, 0xF0}), {Status(0xC0000185)}});

    EXPECT_EQ(Get(), Status(0xC0000185));
    EXPECT_EQ(Found(), (Extents{{0, 4 * 4096}}));
    EXPECT_EQ(machine.handles.OpenCount(), 0u);
}

TEST_F(UsedExtentsTroubleTest, AWarningThatMoreFollowsIsNoFailure)
{
    Script({Piece(machine::kBufferOverflow, 0, 16, {0xFF}), Piece(machine::kSuccess, 8, 8, {0x01})});

    EXPECT_EQ(Get(), 0);
    EXPECT_EQ(Found(), (Extents{{0, 9 * 4096}}));
}

TEST_F(UsedExtentsTroubleTest, AnotherSuccessThatMoreFollowsIsNoFailureEither)
{
    Script({Piece(0x105, 0, 16, {0xFF}), Piece(machine::kSuccess, 8, 8, {0x01})});

    EXPECT_EQ(Get(), 0);
    EXPECT_EQ(Asked(), (std::vector<int64_t>{0, 8}));
    EXPECT_EQ(Found(), (Extents{{0, 9 * 4096}}));
}

TEST_F(UsedExtentsTroubleTest, BitsThatWereCountedButDidNotComeAreAskedFor)
{
    Script({Piece(machine::kSuccess, 0, 64, {0x80}), Piece(machine::kSuccess, 8, 56, std::vector<uint8_t>(7, 0x01))});

    EXPECT_EQ(Get(), 0);
    EXPECT_EQ(Asked(), (std::vector<int64_t>{0, 8}));
    EXPECT_EQ(Found()[0], (kk::VolumeExtent{7 * 4096, 2 * 4096}));
    EXPECT_EQ(Found().size(), 7u);
}

TEST_F(UsedExtentsTroubleTest, BitsThatWereNotCountedAreNotUsed)
{
    Script({Piece(machine::kSuccess, 0, 3, std::vector<uint8_t>(16, 0xFF))});

    EXPECT_EQ(Get(), 0);
    EXPECT_EQ(Found(), (Extents{{0, 3 * 4096}}));
}

TEST_F(UsedExtentsTroubleTest, ALengthBeyondTheBufferIsNotBelieved)
{
    machine::ControlAnswer answer = Piece(machine::kSuccess, 0, kAnswerBits + 8, std::vector<uint8_t>(1'048'584, 0xFF));
    answer.information = 0xFFFFFFFF;
    Script({answer, Piece(machine::kSuccess, kAnswerBits, 8, {0x01})});

    EXPECT_EQ(Get(), 0);
    EXPECT_EQ(Asked(), (std::vector<int64_t>{0, kAnswerBits}));
    EXPECT_EQ(Found(), (Extents{{0, (kAnswerBits + 1) * 4096}}));
}

TEST_F(UsedExtentsTroubleTest, BytesOfAnEarlierAnswerAreNotReadAgain)
{
    // The second answer is a success without a byte: what lies in the buffer is the first one's.
    Script({Piece(machine::kBufferOverflow, 0, 16, {0xFF}), {machine::kSuccess}});

    EXPECT_EQ(Get(), kMakesNoSense);
}

TEST_F(UsedExtentsTroubleTest, AnAnswerShorterThanItsHeadMakesNoSense)
{
    for (const uint64_t bytes : {0u, 1u, 8u, 15u}) {
        machine::ControlAnswer answer = Piece(machine::kSuccess, 0, 8, {0xFF});
        answer.information = bytes;
        Script({answer});

        EXPECT_EQ(Get(), kMakesNoSense);
        EXPECT_TRUE(Found().empty());
    }
}

TEST_F(UsedExtentsTroubleTest, AnAnswerWithoutProgressMakesNoSense)
{
    Script({Piece(machine::kBufferOverflow, 0, 8, {})});
    EXPECT_EQ(Get(), kMakesNoSense);

    Script({Piece(machine::kBufferOverflow, 0, 0, {})});
    EXPECT_EQ(Get(), kMakesNoSense);

    Script({Piece(machine::kSuccess, 0, 8, {})});
    EXPECT_EQ(Get(), kMakesNoSense);

    // The whole answer lies before the cluster that was asked for.
    Script(
        {Piece(machine::kBufferOverflow, 0, 64, {0, 0, 0, 0}), Piece(machine::kBufferOverflow, 0, 64, {0, 0, 0, 0})});
    EXPECT_EQ(Get(), kMakesNoSense);

    Script({Piece(machine::kBufferOverflow, 0, 64, {0, 0, 0, 0}), Piece(machine::kBufferOverflow, 8, 56, {0})});
    EXPECT_EQ(Get(), kMakesNoSense);
}

TEST_F(UsedExtentsTroubleTest, AnEarlierRestThatEndsTheVolumeIsAccepted)
{
    Script({Piece(machine::kBufferOverflow, 0, 40, {0, 0, 0, 0xFF}),
            Piece(machine::kSuccess, 0, 40, {0xFF, 0xFF, 0xFF, 0, 0x01})});

    EXPECT_EQ(Get(), 0);
    EXPECT_EQ(Found(), (Extents{{24 * 4096, 9 * 4096}}));
}

TEST_F(UsedExtentsTroubleTest, AnAnswerThatEndsBeforeTheQuestionAddsNothing)
{
    Script({Piece(machine::kBufferOverflow, 0, 40, {0, 0, 0, 0xFF}), Piece(machine::kSuccess, 0, 16, {0xFF, 0xFF})});

    EXPECT_EQ(Get(), 0);
    EXPECT_EQ(Found(), (Extents{{24 * 4096, 8 * 4096}}));
}

TEST_F(UsedExtentsTroubleTest, NumbersBelowZeroMakeNoSense)
{
    Script({Piece(machine::kSuccess, -1, 8, {0xFF})});
    EXPECT_EQ(Get(), kMakesNoSense);

    Script({Piece(machine::kSuccess, 0, -8, {0xFF})});
    EXPECT_EQ(Get(), kMakesNoSense);

    Script({Piece(machine::kBufferOverflow, std::numeric_limits<int64_t>::min(), 8, {0xFF})});
    EXPECT_EQ(Get(), kMakesNoSense);

    Script({Piece(machine::kBufferOverflow, 0, std::numeric_limits<int64_t>::min(), {0xFF})});
    EXPECT_EQ(Get(), kMakesNoSense);
    EXPECT_TRUE(Found().empty());
}

TEST_F(UsedExtentsTroubleTest, AStartBehindTheQuestionMakesNoSense)
{
    Script({Piece(machine::kSuccess, 1, 8, {0xFF})});
    EXPECT_EQ(Get(), kMakesNoSense);

    Script({Piece(machine::kBufferOverflow, 0, 100, {0xFF}), Piece(machine::kSuccess, 16, 84, {0xFF})});
    EXPECT_EQ(Get(), kMakesNoSense);
}

TEST_F(UsedExtentsTroubleTest, VolumesBeyond63BitsMakeNoSense)
{
    constexpr int64_t kMost = std::numeric_limits<int64_t>::max();
    Script({Piece(machine::kBufferOverflow, 0, kMost, {0xFF})});
    EXPECT_EQ(Get(2), kMakesNoSense);

    Script({Piece(machine::kBufferOverflow, 0, kMost / 4096 + 1, {0xFF})});
    EXPECT_EQ(Get(4096), kMakesNoSense);

    Script({Piece(machine::kBufferOverflow, 0, 64, {0xFF}), Piece(machine::kBufferOverflow, 8, kMost, {0xFF})});
    EXPECT_EQ(Get(1), kMakesNoSense);
}

TEST_F(UsedExtentsTroubleTest, TheLargestVolumeStillMakesSense)
{
    constexpr int64_t kMost = std::numeric_limits<int64_t>::max();
    Script({Piece(machine::kBufferOverflow, 0, kMost, {0x81}), Piece(machine::kSuccess, 8, 8, {0xFF})});
    EXPECT_EQ(Get(1), 0);
    EXPECT_EQ(Found(), (Extents{{0, 1}, {7, 9}}));
}

TEST_F(UsedExtentsTroubleTest, AnEverAdvancingVolumeEndsAtItsLimit)
{
    int requests = 0;
    device->control = [&](const machine::ControlRequest& request) {
        int64_t start = 0;
        std::memcpy(&start, request.input.data(), sizeof(start));
        machine::ControlAnswer answer = Piece(machine::kBufferOverflow, start, kAnswerBits + 8, {});
        answer.information = kAnswerBytes;
        return ++requests < 1000 ? answer : machine::ControlAnswer{machine::kIoDeviceError};
    };

    EXPECT_EQ(Get(0xFFFFFFFF), kMakesNoSense);
    EXPECT_EQ(requests, 256);
}

TEST_F(UsedExtentsTroubleTest, ARunWithoutRoomInTheListIsLeftOut)
{
    Bits bits(40, false);
    for (size_t i = 0; i < 20; ++i) {
        bits[2 * i] = true;
    }
    UseBits(bits);
    // The first is the object, the second the buffer, then the list grows to 8, 16 and 32.
    for (const auto& [nth, lost] : {std::pair<uint64_t, size_t>{3, 0}, {4, 8}, {5, 16}}) {
        machine.faults.Clear();
        machine.faults.Fail({.kind = machine::CallKind::Allocate}, nth, 0);
        kk::Array<kk::VolumeExtent> found;
        Extents expected = NaiveExtents(bits, 4096);
        expected.erase(expected.begin() + static_cast<ptrdiff_t>(lost));

        EXPECT_EQ(kk::GetVolumeUsedExtents(ScriptedDevice::kName, 4096, found), 0);
        EXPECT_EQ(Extents(found.begin(), found.end()), expected) << nth;
    }
}

TEST_F(UsedExtentsTroubleTest, WithoutAnyRoomInTheListItIsEmpty)
{
    UseBits(Bits(40, true));
    machine.faults.FailFrom({.kind = machine::CallKind::Allocate}, 3, 0);

    EXPECT_EQ(Get(), 0);
    EXPECT_TRUE(Found().empty());
}

}  // namespace
