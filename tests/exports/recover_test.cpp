#include "exports/support/recover_test.h"
#include "machine/text.h"
#include "support/sweep.h"

// What KkRecoverShrinkToFit does with a partition and its target: how far it shrinks, and where its overlay lies.

namespace {

using machine::CallKind;
using testing::ElementsAre;

class RecoverShrinkToFitTest : public RecoverTest {
protected:
    /// The steps that can be told apart from outside, each once.
    std::vector<std::string> Steps() const
    {
        std::vector<std::string> steps;
        for (const machine::CallRecord& call : machine.journal.Records()) {
            const std::string step = StepOf(call);
            if (!step.empty() && (steps.empty() || steps.back() != step)) {
                steps.push_back(step);
            }
        }
        return steps;
    }

private:
    static bool Concerns(const machine::CallRecord& call, const char* object)
    {
        return call.object.find(object) != std::string::npos;
    }
    static std::string StepOf(const machine::CallRecord& call)
    {
        if (call.kind == CallKind::Win32Error) {
            return call.name;
        }
        if (call.kind == CallKind::CreateFile && Concerns(call, ".rec.avhdx")) {
            return "delete";
        }
        if (call.kind == CallKind::CreateFile && Concerns(call, "image.vhdx")) {
            return "inspect";
        }
        if (call.code == 0x700A0 && Concerns(call, "PhysicalDrive0")) {
            return "list";
        }
        if (call.code == 0x901B0) {
            return "shrink";
        }
        if (call.kind == CallKind::WriteFile && Concerns(call, "HarddiskVolume")) {
            return "clone";
        }
        return call.code == 0x900F0 ? "extend" : "";
    }
};

TEST_F(RecoverShrinkToFitTest, ALargerPartitionIsShrunkInAnOverlayAndCloned)
{
    SHOWS(KkRecoverShrinkToFit, KK_STATUS_SUCCESS,
          "a larger partition is shrunk in an overlay and cloned; the overlay is gone afterwards");

    AddTarget(4 * kMiB);
    MakeImage(8 * kMiB);

    ASSERT_EQ(Recover(), 0);

    EXPECT_TRUE(TargetHolds(1));
    EXPECT_THAT(ShrunkTo(), ElementsAre(4 * kMiB));
    EXPECT_THAT(Steps(),
                ElementsAre("inspect", "list", "CreateVirtualDisk", "AttachVirtualDisk", "GetVirtualDiskPhysicalPath",
                            "shrink", "clone", "OpenVirtualDisk", "DetachVirtualDisk", "delete"));
}

TEST_F(RecoverShrinkToFitTest, APartitionThatFitsIsClonedAsItIs)
{
    SHOWS(KkRecoverShrinkToFit, KK_STATUS_SUCCESS, "a partition that fits is cloned as it is");

    AddTarget(4 * kMiB);
    for (const uint64_t length : {4 * kMiB, 3 * kMiB}) {
        MakeImage(length);

        EXPECT_EQ(Recover(), 0);

        EXPECT_TRUE(TargetHolds(1));
        EXPECT_EQ(machine.journal.Count({.code = 0x901B0}), 0u);
    }
}

TEST_F(RecoverShrinkToFitTest, OneSectorTooManyIsShrunk)
{
    SHOWS(KkRecoverShrinkToFit, KK_STATUS_BUFFER_TOO_SMALL,
          "a partition too long by less than 1 MiB keeps its length, and without NTFS does not fit");

    AddTarget(4 * kMiB);
    MakeImage(4 * kMiB + 512);

    // A partition that is so little too long keeps its length, and without a file system that is what is cloned.
    EXPECT_EQ(Recover(), Status(0xC0000023));

    EXPECT_THAT(ShrunkTo(), ElementsAre(4 * kMiB));
    EXPECT_TRUE(TargetIsBlank());
}

TEST_F(RecoverShrinkToFitTest, ATargetOf128MiBIsAimedAtExactly)
{
    SHOWS(KkRecoverShrinkToFit, KK_STATUS_SUCCESS, "a target of 128 MiB is aimed at exactly");

    AddTarget(128 * kMiB);
    MakeImage(140 * kMiB);

    EXPECT_EQ(Recover(), 0);

    EXPECT_THAT(ShrunkTo(), ElementsAre(128 * kMiB));
    EXPECT_TRUE(TargetHolds(1));
}

TEST_F(RecoverShrinkToFitTest, ALargerTargetIsAimedAtWith64MiBToSpare)
{
    SHOWS(KkRecoverShrinkToFit, KK_STATUS_SUCCESS, "a larger target is aimed at with 64 MiB to spare");

    AddTarget(129 * kMiB);
    MakeImage(140 * kMiB);
    // One byte more than 128 MiB; what is asked of the file system is rounded up to a whole MiB.
    PretendTargetLengths({128 * kMiB + 1});

    EXPECT_EQ(Recover(), 0);

    EXPECT_THAT(ShrunkTo(), ElementsAre(65 * kMiB));
    EXPECT_TRUE(TargetHolds(1));
}

TEST_F(RecoverShrinkToFitTest, ASmallTargetThatIsNoWholeMiBHasNoRoomForWhatIsRoundedUp)
{
    SHOWS(KkRecoverShrinkToFit, KK_STATUS_BUFFER_TOO_SMALL,
          "a small target that is no whole number of MiB has no room for what is rounded up");

    AddTarget(4 * kMiB + 512 * kKiB);
    MakeImage(8 * kMiB);

    EXPECT_EQ(Recover(), Status(0xC0000023));

    EXPECT_THAT(ShrunkTo(), ElementsAre(5 * kMiB));
    EXPECT_TRUE(TargetIsBlank());
}

TEST_F(RecoverShrinkToFitTest, AllMemoryIsGivenBackBeforeTheOverlayIsMade)
{
    SHOWS(KkRecoverShrinkToFit, KK_STATUS_SUCCESS, "all memory is given back before the overlay is made");

    AddTarget(4 * kMiB);
    MakeImage(8 * kMiB);

    EXPECT_EQ(Recover(), 0);

    const machine::CallRecord* const creation = machine.journal.First({.name = "CreateVirtualDisk"});
    ASSERT_NE(creation, nullptr);
    EXPECT_EQ(CallsBefore(machine.journal, *creation, {.kind = CallKind::Free}),
              CallsBefore(machine.journal, *creation, {.kind = CallKind::Allocate}));
}

TEST_F(RecoverShrinkToFitTest, TheOverlaysNameTakes580UnitsOfTheImages)
{
    SHOWS(KkRecoverShrinkToFit, KK_STATUS_SUCCESS, "the overlay's name takes 580 units of the image's");

    const std::filesystem::path deep = folder / (std::string(200, 'a') + "/" + std::string(200, 'b'));
    std::filesystem::create_directories(deep);
    AddTarget(4 * kMiB);
    for (const size_t units : {579u, 580u, 581u, 595u, 601u}) {
        const size_t folderUnits = WindowsPath(deep / "").size();
        MakeImageAt(deep / std::string(units - folderUnits, 'i'));
        MakeImage(8 * kMiB);
        ASSERT_EQ(WindowsPath(imagePath).size(), units);

        EXPECT_EQ(Recover(), 0) << units;

        const std::u16string overlay = WindowsPath(imagePath).substr(0, 580) + u".rec.avhdx";
        EXPECT_EQ(machine.journal.First({.name = "CreateVirtualDisk"})->object, machine::Utf8(overlay));
        EXPECT_EQ(machine.journal.Last({.kind = CallKind::CreateFile})->object, "\\??\\" + machine::Utf8(overlay));
        EXPECT_EQ(machine.journal.Last({.kind = CallKind::CreateFile})->result, 0u);
        EXPECT_TRUE(std::filesystem::remove(imagePath));
        EXPECT_TRUE(std::filesystem::is_empty(deep));
    }
}

}  // namespace
