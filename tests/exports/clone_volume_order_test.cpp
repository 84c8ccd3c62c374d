#include <algorithm>

#include "exports/support/clone_volume_test.h"

// What KkCloneVolume does to both volumes in which order, and what it leaves when a step fails.

namespace {

using machine::CallKind;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class CloneVolumeOrderTest : public CloneVolumeTest {};

TEST_F(CloneVolumeOrderTest, BothAreOpenedBeforeTheTargetIsLockedAndClosedBeforeItIsExtended)
{
    SHOWS(KkCloneVolume, KK_STATUS_SUCCESS,
          "both volumes are opened before the target is locked, and the copy is closed before it is extended");

    AnswerNtfsData(kSource, 1000, 512);
    AnswerNtfsData(kStart, 1000, 512);

    ASSERT_EQ(Clone(1), 0);

    EXPECT_THAT(Steps(), ElementsAre("open volume 1", "NTFS data of volume 1", "open volume 2 for writing",
                                     "size of volume 2", "lock volume 2", "dismount volume 2",
                                     "read volume 1 at 0+512000", "write volume 2 at 0+512000", "flush volume 2",
                                     "unlock volume 2", "close volume 2", "close volume 1", "open volume 2 for writing",
                                     "NTFS data of volume 2", "size of volume 2", "extend volume 2", "close volume 2"));
}

TEST_F(CloneVolumeOrderTest, AnyNumberButZeroAsksForTheExtension)
{
    SHOWS(KkCloneVolume, KK_STATUS_SUCCESS, "any number but 0 asks for the extension of the file system");

    AnswerNtfsData(kStart, 1000, 512);
    for (const uint32_t yes : {1u, 0x100u, 0x80000000u}) {
        ASSERT_EQ(Clone(yes), 0);
        EXPECT_EQ(StepsLike("extend volume 2"), 1u) << std::hex << yes;
    }
    ASSERT_EQ(Clone(0), 0);
    EXPECT_EQ(StepsLike("extend volume 2"), 0u);
    EXPECT_EQ(StepsLike("open volume 2"), 1u);
}

TEST_F(CloneVolumeOrderTest, TheSourceIsOnlyRead)
{
    SHOWS(KkCloneVolume, KK_STATUS_SUCCESS, "the source is only read: not locked, dismounted or flushed");

    ASSERT_EQ(Clone(1), 0);

    EXPECT_EQ(StepsLike("lock volume 1") + StepsLike("dismount volume 1") + StepsLike("flush volume 1"), 0u);
    EXPECT_EQ(machine.journal.First({.kind = CallKind::CreateFile})->access & machine::kFileWriteData, 0u);
}

TEST_F(CloneVolumeOrderTest, ASourceOfUnknownSizeIsNotCopied)
{
    SHOWS(KkCloneVolume, KK_STATUS_UNSUCCESSFUL, "the source does not tell its size; the target is not opened");

    Fail({.code = 0x7405C}, 0xC0000010);

    EXPECT_EQ(Clone(), KK_STATUS_UNSUCCESSFUL);

    EXPECT_THAT(Steps(), ElementsAre("open volume 1", "NTFS data of volume 1", "size of volume 1", "close volume 1"))
        << "and the target is not opened";
}

TEST_F(CloneVolumeOrderTest, WhatDoesNotOpenEndsTheCall)
{
    SHOWS(KkCloneVolume, 0xC0000043, "the target does not open; its status is passed on");
    SHOWS(KkCloneVolume, 0xC0000022, "the source does not open; its status is passed on");

    Fail({.kind = CallKind::CreateFile, .object = "HarddiskVolume2"}, 0xC0000043);
    EXPECT_EQ(Clone(), Status(0xC0000043));
    EXPECT_THAT(Steps(), ElementsAre("open volume 1", "NTFS data of volume 1", "size of volume 1",
                                     "open volume 2 for writing", "close volume 1"));

    Fail({.kind = CallKind::CreateFile, .object = "HarddiskVolume1"}, 0xC0000022);
    EXPECT_EQ(Clone(), Status(0xC0000022));
    EXPECT_THAT(Steps(), ElementsAre("open volume 1"));
}

TEST_F(CloneVolumeOrderTest, OneBufferIsTakenAndGivenBack)
{
    SHOWS(KkCloneVolume, KK_STATUS_SUCCESS, "one buffer is taken and freed");

    ASSERT_EQ(Clone(1), 0);

    EXPECT_EQ(std::ranges::count(machine.heap.Sizes(), kTransfer), 1);
    EXPECT_LT(machine.heap.PeakBytes(), kTransfer + 4096);
}

TEST_F(CloneVolumeOrderTest, WithoutMemoryForTheBufferTheTargetIsClosedAsItIs)
{
    SHOWS(KkCloneVolume, KK_STATUS_NO_MEMORY,
          "no memory for the buffer; the target was dismounted and nothing written");

    machine.heap.SetLimit(4 * kMiB);

    EXPECT_EQ(Clone(1), KK_STATUS_NO_MEMORY);

    EXPECT_THAT(Steps(), ElementsAre("open volume 1", "NTFS data of volume 1", "size of volume 1",
                                     "open volume 2 for writing", "size of volume 2", "lock volume 2",
                                     "dismount volume 2", "close volume 2", "close volume 1"));
    EXPECT_THAT(written, IsEmpty());
}

TEST_F(CloneVolumeOrderTest, ALockOrDismountThatIsRefusedStopsNothing)
{
    SHOWS(KkCloneVolume, KK_STATUS_SUCCESS, "a refused lock or dismount stops nothing");

    Fail({.code = 0x90018}, 0xC0000022);
    Fail({.code = 0x90020}, 0xC0000022);

    EXPECT_EQ(Clone(), 0);

    EXPECT_EQ(StepsLike("dismount volume 2"), 1u);
    ExpectCopied(kLength);
}

TEST_F(CloneVolumeOrderTest, AFlushOrUnlockThatFailsIsNoFailure)
{
    SHOWS(KkCloneVolume, KK_STATUS_SUCCESS, "a flush or unlock that fails does not matter");

    Fail({.kind = CallKind::Flush}, 0xC0000185);
    Fail({.code = 0x9001C}, 0xC0000185);

    EXPECT_EQ(Clone(), 0);

    EXPECT_EQ(StepsLike("unlock volume 2"), 1u);
}

TEST_F(CloneVolumeOrderTest, AWriteThatFailsEndsTheCallWithoutAnUnlock)
{
    SHOWS(KkCloneVolume, 0xC0000185, "a failing write is passed on; the target is partly written and not extended");

    machine.faults.Fail({.kind = CallKind::WriteFile}, 2, 0xC0000185);

    EXPECT_EQ(Clone(1), Status(0xC0000185));

    EXPECT_EQ(StepsLike("flush") + StepsLike("unlock"), 0u);
    EXPECT_EQ(StepsLike("open volume 2"), 1u) << "nothing is extended";
    ExpectCopied(kTransfer);
}

}  // namespace
