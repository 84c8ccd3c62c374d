#include "exports/support/clone_volume_test.h"

// How KkCloneVolume treats what cannot be read.

namespace {

using machine::CallKind;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class CloneUnreadableSourceTest : public CloneVolumeTest {
protected:
    /// Sectors of the source that cannot be read any more.
    void BreakSource(uint64_t firstByte, uint64_t bytes = 512)
    {
        AddScriptedSource(kLength);
        badStart = firstByte;
        badEnd = firstByte + bytes;
    }

    int32_t CloneScripted(uint32_t extend = 0)
    {
        return CloneVolume(ScriptedDevice::kName, u"\\Device\\HarddiskVolume2", extend);
    }
};

TEST_F(CloneUnreadableSourceTest, WhatPrecedesAnUnreadablePieceIsCopiedAndThatIsSuccess)
{
    SHOWS(KkCloneVolume, KK_STATUS_SUCCESS,
          "what precedes an unreadable place is copied; the file system is extended all the same");

    BreakSource(2 * 512);
    AnswerNtfsData(kStart, 1000, 512);

    EXPECT_EQ(CloneScripted(1), 0);

    ExpectCopied(1024);
    EXPECT_THAT(Transfers(CallKind::ReadFile, "Scripted"),
                ElementsAre(Place{0, kTransfer}, Place{0, 512}, Place{512, 512}, Place{1024, 512}));
    EXPECT_THAT(written, ElementsAre(Place{kStart, 1024}));
    EXPECT_EQ(StepsLike("flush volume 2") + StepsLike("unlock volume 2") + StepsLike("extend volume 2"), 3u);
}

TEST_F(CloneUnreadableSourceTest, AnUnreadablePieceInALaterChunkEndsTheCopyThere)
{
    SHOWS(KkCloneVolume, KK_STATUS_SUCCESS, "an unreadable place further on ends the copy there");

    BreakSource(kTransfer + 512 * 100 + 5, 1);

    EXPECT_EQ(CloneScripted(), 0);

    ExpectCopied(kTransfer + 512 * 100);
    EXPECT_THAT(written, ElementsAre(Place{kStart, kTransfer}, Place{kStart + kTransfer, 512 * 100}));
}

TEST_F(CloneUnreadableSourceTest, AnUnreadableBeginningLeavesNothingToCopy)
{
    SHOWS(KkCloneVolume, KK_STATUS_SUCCESS, "a source whose beginning is unreadable leaves nothing to copy");

    BreakSource(0);

    EXPECT_EQ(CloneScripted(), 0);

    EXPECT_THAT(written, IsEmpty());
    EXPECT_THAT(Transfers(CallKind::ReadFile, "Scripted"), ElementsAre(Place{0, kTransfer}, Place{0, 512}));
    EXPECT_EQ(StepsLike("unlock volume 2"), 1u);
}

TEST_F(CloneUnreadableSourceTest, ZerosBeforeAnUnreadablePieceAreNotWritten)
{
    SHOWS(KkCloneVolume, KK_STATUS_SUCCESS, "zeros before an unreadable place are not written");

    Target().WriteBytes(kSource, std::vector<uint8_t>(4096));
    BreakSource(4096);

    EXPECT_EQ(CloneScripted(), 0);

    EXPECT_THAT(written, IsEmpty());
}

TEST_F(CloneUnreadableSourceTest, PiecesThatAreReadAfterAllAreWrittenAsOneAndTheCopyGoesOn)
{
    SHOWS(KkCloneVolume, KK_STATUS_SUCCESS, "when reading again in small pieces works, the copy goes on");

    machine.faults.Fail({.kind = CallKind::ReadFile}, 2, 0xC0000185);
    AnswerNtfsData(kSource, (kTransfer + 2048) / 512, 512);

    EXPECT_EQ(Clone(), 0);

    EXPECT_THAT(written, ElementsAre(Place{kStart, kTransfer}, Place{kStart + kTransfer, 2048}));
    ExpectCopied(kTransfer + 2048);

    machine.faults.Clear();
    machine.faults.Fail({.kind = CallKind::ReadFile}, 1, 0xC0000185);
    AnswerNtfsData(kSource, 3 * kTransfer / 2 / 512, 512);
    Target().WriteBytes(kStart, OldBytes(kTargetLength));
    machine.journal.SetRecording(false);

    EXPECT_EQ(Clone(), 0);

    ExpectCopied(3 * kTransfer / 2);
}

TEST_F(CloneUnreadableSourceTest, PiecesHave512BytesWhateverTheSectorSize)
{
    SHOWS(KkCloneVolume, KK_STATUS_SUCCESS,
          "with sectors of 4096 bytes up to 8 MiB before an unreadable place are left out");

    AddTarget(kLargeGpt, {{kSource, kLength}, {kStart, kTargetLength}}, kSize);
    Target().WriteBytes(kSource, Pattern(kLength, 1));
    machine.faults.Fail({.kind = CallKind::ReadFile}, 1, 0xC0000185);

    EXPECT_EQ(CloneVolume(VolumeAt(kSource), VolumeAt(kStart)), 0);

    EXPECT_THAT(Transfers(CallKind::ReadFile, "HarddiskVolume"), ElementsAre(Place{0, kTransfer}, Place{0, 512}))
        << "which a volume with larger sectors refuses";
    EXPECT_THAT(written, IsEmpty());
}

TEST_F(CloneUnreadableSourceTest, ATailBelow512BytesIsNotReadAgain)
{
    SHOWS(KkCloneVolume, KK_STATUS_SUCCESS, "a tail below 512 bytes is not read again");

    AddScriptedSource(kTransfer + 511);
    badStart = kTransfer;
    badEnd = kTransfer + 1;

    EXPECT_EQ(CloneScripted(), 0);

    EXPECT_THAT(Transfers(CallKind::ReadFile, "Scripted"), ElementsAre(Place{0, kTransfer}, Place{kTransfer, 511}));
    ExpectCopied(kTransfer);
}

TEST_F(CloneUnreadableSourceTest, PiecesEndWhereTheNextWouldPassTheChunk)
{
    SHOWS(KkCloneVolume, KK_STATUS_SUCCESS, "pieces of 512 bytes that would pass the chunk's end are not read");

    AddScriptedSource(1300);
    machine.faults.Fail({.kind = CallKind::ReadFile}, 1, 0xC0000185);

    EXPECT_EQ(CloneScripted(), 0);

    EXPECT_THAT(Transfers(CallKind::ReadFile, "Scripted"), ElementsAre(Place{0, 1300}, Place{0, 512}, Place{512, 512}));
    ExpectCopied(1024);
}

TEST_F(CloneUnreadableSourceTest, AChunkOf512BytesIsReadAgain)
{
    SHOWS(KkCloneVolume, KK_STATUS_SUCCESS, "a chunk of 512 bytes is read again");

    AddScriptedSource(512);
    machine.faults.Fail({.kind = CallKind::ReadFile}, 1, 0xC0000185);

    EXPECT_EQ(CloneScripted(), 0);

    ExpectCopied(512);
}

}  // namespace
