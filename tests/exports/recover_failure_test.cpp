#include <fstream>

#include "exports/support/recover_test.h"

// What KkRecoverShrinkToFit tells and leaves when overlay, shrinking or cloning fail.

namespace {

using machine::CallKind;
using testing::ElementsAre;

class RecoverFailureTest : public RecoverTest {};

TEST_F(RecoverFailureTest, ALeftOverOverlayMakesItFailAndIsClearedAway)
{
    SHOWS(KkRecoverShrinkToFit, 0x80070050, "an overlay that an earlier run left makes it fail, and is deleted");
    SHOWS(KkRecoverShrinkToFit, KK_STATUS_SUCCESS, "the next run after a left-over overlay succeeds");

    AddTarget(4 * kMiB);
    MakeImage(8 * kMiB);
    std::ofstream(OverlayPath()) << "left over";

    EXPECT_EQ(Recover(), Status(0x80070050));

    EXPECT_TRUE(TargetIsBlank());
    EXPECT_EQ(Recover(), 0);
}

TEST_F(RecoverFailureTest, AnOverlayThatCannotBeMountedIsDiscarded)
{
    SHOWS(KkRecoverShrinkToFit, 0x80070522,
          "the overlay cannot be created, attached or named; it is discarded, the target untouched");

    AddTarget(4 * kMiB);
    MakeImage(8 * kMiB);
    for (const char* const call : {"CreateVirtualDisk", "AttachVirtualDisk", "GetVirtualDiskPhysicalPath"}) {
        machine.faults.Clear();
        machine.faults.Fail({.name = call}, 1, 1314);

        EXPECT_EQ(Recover(), Status(0x80070522)) << call;

        EXPECT_EQ(machine.journal.Count({.name = "OpenVirtualDisk"}), 1u);
        EXPECT_TRUE(TargetIsBlank());
    }
}

TEST_F(RecoverFailureTest, WithoutTheServiceALeftOverOverlayIsClearedAwayAllTheSame)
{
    SHOWS(KkRecoverShrinkToFit, KK_STATUS_NOT_FOUND,
          "the virtual-disk service creates no files; a left-over overlay is deleted");

    AddTarget(4 * kMiB);
    MakeImage(8 * kMiB);
    machine.modules.RemoveEntry(u"virtdisk.dll", "CreateVirtualDisk");
    std::ofstream(OverlayPath()) << "left over";

    EXPECT_EQ(Recover(), Status(0xC0000225));
}

TEST_F(RecoverFailureTest, AFailedShrinkIsToldAndTheTargetNotTouched)
{
    SHOWS(KkRecoverShrinkToFit, 0xC0000021,
          "the file system has data where it is to be cut off; the target is untouched");

    AddTarget(4 * kMiB);
    MakeImage(8 * kMiB);
    machine.faults.Fail({.code = 0x901B0}, 2, 0xC0000021);

    EXPECT_EQ(Recover(), Status(0xC0000021));

    EXPECT_TRUE(TargetIsBlank());
    EXPECT_EQ(machine.journal.Count({.code = 0x90018}), 0u) << "nothing was locked";
}

TEST_F(RecoverFailureTest, AFailedCloneIsTold)
{
    SHOWS(KkRecoverShrinkToFit, 0xC0000185, "a failing write of the target is passed on");

    AddTarget(4 * kMiB);
    MakeImage(3 * kMiB);
    machine.faults.Fail({.kind = CallKind::WriteFile, .object = "HarddiskVolume"}, 1, 0xC0000185);

    EXPECT_EQ(Recover(), Status(0xC0000185));
}

TEST_F(RecoverFailureTest, ATargetWithoutAVolumeIsNoTarget)
{
    SHOWS(KkRecoverShrinkToFit, KK_STATUS_NO_MEDIA_IN_DEVICE, "the target has no volume");

    AddTarget(4 * kMiB);
    MakeImage(8 * kMiB);
    machine.HideVolume(*machine.FindVolume(0, kTargetStart));

    EXPECT_EQ(Recover(), Status(0xC0000013));

    EXPECT_THAT(ShrunkTo(), ElementsAre(4 * kMiB)) << "the overlay was, not the image";
    EXPECT_TRUE(TargetIsBlank());
}

TEST_F(RecoverFailureTest, AnOverlayWithoutAVolumeIsNoSource)
{
    SHOWS(KkRecoverShrinkToFit, KK_STATUS_INVALID_PARAMETER, "the image's partition must be shrunk and has no volume");
    SHOWS(KkRecoverShrinkToFit, KK_STATUS_NO_MEDIA_IN_DEVICE,
          "the image's partition need not be shrunk and has no volume");

    AddTarget(4 * kMiB);
    machine.switches.diskIdentityCollisions = true;
    MakeImage(8 * kMiB);
    EXPECT_EQ(Recover(), Status(0xC000000D)) << "nothing to shrink";

    MakeImage(4 * kMiB);
    EXPECT_EQ(Recover(), Status(0xC0000013)) << "nothing to clone";
    EXPECT_TRUE(TargetIsBlank());
}

TEST_F(RecoverFailureTest, ADiskWhoseNumberIsNotToldIsOneThatNobodyHas)
{
    SHOWS(KkRecoverShrinkToFit, 0xC0000034, "the overlay's disk number is not told, and the partition must be shrunk");
    SHOWS(KkRecoverShrinkToFit, KK_STATUS_NO_MEDIA_IN_DEVICE,
          "the overlay's disk number is not told, and the partition need not be shrunk");

    AddTarget(4 * kMiB);
    virtualDisks.behaviour.physicalPath = u"nameless";
    MakeImage(8 * kMiB);
    EXPECT_EQ(Recover(), Status(0xC0000034));
    EXPECT_EQ(machine.journal.Count({.kind = CallKind::CreateFile, .object = "PhysicalDrive4294967295"}), 1u);

    MakeImage(4 * kMiB);
    EXPECT_EQ(Recover(), Status(0xC0000013));
    EXPECT_TRUE(TargetIsBlank());
}

TEST_F(RecoverFailureTest, ADiscardThatFailsChangesNothingAboutTheResult)
{
    SHOWS(KkRecoverShrinkToFit, KK_STATUS_SUCCESS,
          "an overlay that cannot be detached or deleted does not change the result");

    AddTarget(4 * kMiB);
    MakeImage(8 * kMiB);
    virtualDisks.behaviour.detachFailure = 170;

    EXPECT_EQ(api.recoverShrinkToFit(WindowsPath(imagePath).c_str(), 1, 0, kTargetStart), 0);

    EXPECT_TRUE(TargetHolds(1));
    EXPECT_THAT(virtualDisks.AttachedImages(), ElementsAre(OverlayPath()));
}

}  // namespace
