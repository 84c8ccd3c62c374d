#include <fstream>
#include <tuple>

#include "core/nt.h"
#include "disk/layout_answer.h"
#include "exports/support/recover_test.h"
#include "machine/text.h"
#include "support/hook.h"
#include "support/sweep.h"

namespace {

using machine::CallKind;
using machine::CallPattern;
using testing::ElementsAre;
using testing::IsEmpty;

class RecoverShrinkToFitTest : public RecoverTest {
protected:
    /// Disk 0 tells of a partition of each of these lengths, all in one place.
    void PretendTargetLengths(const std::vector<uint64_t>& lengths)
    {
        LayoutAnswer layout(kk::WirePartitionStyle::Gpt);
        for (const uint64_t length : lengths) {
            layout.Add(1, kTargetStart, static_cast<int64_t>(length)).gpt.partitionType = machine::kBasicDataType;
        }
        machine.OnControl({.object = "PhysicalDrive0", .code = 0x70050},
                          [answer = layout.Bytes()](const machine::CallRecord&, const machine::ControlRequest&) {
                              return std::optional(machine::ControlAnswer{.output = answer});
                          });
    }

    void ExpectNothingBegun(int32_t status, int32_t expected) const
    {
        EXPECT_EQ(status, expected);
        EXPECT_FALSE(HasMadeAnOverlay());
        EXPECT_EQ(machine.journal.Count({.name = "OpenVirtualDisk"}), 0u);
    }

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

TEST_F(RecoverShrinkToFitTest, ThePartitionIsFoundByItsNumber)
{
    SHOWS(KkRecoverShrinkToFit, KK_STATUS_SUCCESS, "the partition is found by its number in the image's table");

    AddTarget(2 * kMiB);
    MakeImage({{.start = kMiB, .length = kMiB}, {.start = 3 * kMiB, .length = kMiB}}, 8 * kMiB);

    EXPECT_EQ(Recover(2), 0);
    EXPECT_TRUE(TargetHolds(2));
    EXPECT_EQ(Recover(1), 0);
    EXPECT_TRUE(TargetHolds(1));
}

TEST_F(RecoverShrinkToFitTest, TheTargetIsFoundByItsPlace)
{
    SHOWS(KkRecoverShrinkToFit, KK_STATUS_SUCCESS, "the target is found by its place");

    machine.AddDisk(64 * kMiB).Gpt(
        {.partitions = {{.start = kMiB, .length = kMiB}, {.start = 4 * kMiB, .length = 6 * kMiB}}});
    MakeImage(8 * kMiB);

    EXPECT_EQ(Recover(1, 4 * kMiB), 0);

    EXPECT_TRUE(TargetHolds(1, 4 * kMiB));
    EXPECT_THAT(ShrunkTo(), ElementsAre(6 * kMiB));
}

TEST_F(RecoverShrinkToFitTest, OfSeveralPartitionsInOnePlaceTheLastOneCounts)
{
    SHOWS(KkRecoverShrinkToFit, KK_STATUS_SUCCESS, "of several partitions in one place the last one counts");

    AddTarget(8 * kMiB);
    MakeImage(8 * kMiB);
    PretendTargetLengths({2 * kMiB, 8 * kMiB});

    EXPECT_EQ(Recover(), 0);

    EXPECT_THAT(ShrunkTo(), IsEmpty());
}

TEST_F(RecoverShrinkToFitTest, PartitionsThatAreNotThereAreRefused)
{
    SHOWS(KkRecoverShrinkToFit, KK_STATUS_INVALID_PARAMETER,
          "the image or the disk has no such partition; nothing is begun");

    AddTarget(4 * kMiB);
    MakeImage(8 * kMiB);

    for (const int32_t number : {0, 2, -1, 0x7FFFFFFF}) {
        ExpectNothingBegun(Recover(number), Status(0xC000000D));
        EXPECT_EQ(machine.journal.Count({.code = 0x70050}), 0u) << "the disk is not looked at";
    }
    for (const uint64_t start : {uint64_t{0}, kTargetStart + 512, ~uint64_t{0}}) {
        ExpectNothingBegun(Recover(1, start), Status(0xC000000D));
    }
    MakeImage({}, 8 * kMiB);
    ExpectNothingBegun(Recover(), Status(0xC000000D));
}

TEST_F(RecoverShrinkToFitTest, AnImageThatCannotBeInspectedIsAFailure)
{
    SHOWS(KkRecoverShrinkToFit, KK_STATUS_UNSUCCESSFUL,
          "the image cannot be inspected: missing, no image, a null path");

    AddTarget(4 * kMiB);
    ExpectNothingBegun(Recover(), Status(0xC0000001));
    std::ofstream(imagePath) << "no image";
    ExpectNothingBegun(Recover(), Status(0xC0000001));
    ExpectNothingBegun(api.recoverShrinkToFit(nullptr, 1, 0, kTargetStart), Status(0xC0000001));
    MakeImage(8 * kMiB);
    const CallPattern imageOpened = {.kind = CallKind::CreateFile, .object = "image.vhdx"};
    for (const uint64_t inspection : {1u, 2u}) {
        machine.faults.Clear();
        machine.faults.Fail(imageOpened, inspection, 0xC0000022);
        ExpectNothingBegun(Recover(), Status(0xC0000001));
        EXPECT_EQ(machine.journal.Count(imageOpened), inspection);
    }
}

TEST_F(RecoverShrinkToFitTest, ADiskThatCannotBeListedIsAFailure)
{
    SHOWS(KkRecoverShrinkToFit, KK_STATUS_UNSUCCESSFUL, "the target disk cannot be listed");

    MakeImage(8 * kMiB);
    ExpectNothingBegun(Recover(), Status(0xC0000001));
    AddTarget(4 * kMiB);
    for (const uint32_t reason : {0xC0000022u, 0xC000009Au, 0x80000005u}) {
        machine.faults.Clear();
        machine.faults.FailFrom({.code = 0x70050}, 1, reason);
        ExpectNothingBegun(Recover(), Status(0xC0000001));
    }
}

TEST_F(RecoverShrinkToFitTest, ADiskWithoutATableHasNoTarget)
{
    SHOWS(KkRecoverShrinkToFit, KK_STATUS_INVALID_PARAMETER, "a disk without a table has no such partition");

    machine.AddDisk(64 * kMiB);
    MakeImage(8 * kMiB);

    ExpectNothingBegun(Recover(), Status(0xC000000D));
}

TEST_F(RecoverShrinkToFitTest, BothTablesAreTakenFirst)
{
    SHOWS(KkRecoverShrinkToFit, KK_STATUS_NO_MEMORY, "no memory for the lists of partitions; nothing is looked at");

    AddTarget(4 * kMiB);
    MakeImage(8 * kMiB);
    for (const uint64_t nth : {1u, 2u}) {
        machine.faults.Clear();
        machine.faults.Fail({.kind = CallKind::Allocate}, nth, 0);

        ExpectNothingBegun(Recover(), Status(0xC0000017));

        EXPECT_EQ(machine.journal.Count({.kind = CallKind::CreateFile}), 0u);
        const std::vector<machine::CallRecord> blocks = machine.journal.FindAll({.kind = CallKind::Allocate});
        ASSERT_EQ(blocks.size(), nth);
        EXPECT_EQ(blocks.back().length, nth == 1 ? 6912u : 23872u);
    }
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

TEST_F(RecoverShrinkToFitTest, OnlyTheFirst64PartitionsOfAnImageAreSearched)
{
    SHOWS(KkRecoverShrinkToFit, KK_STATUS_INVALID_PARAMETER, "the image's 65th partition is not found");
    SHOWS(KkRecoverShrinkToFit, KK_STATUS_SUCCESS, "the image's 64th partition is found");

    AddTarget(2 * kMiB);
    std::vector<machine::GptPartition> partitions(65);
    for (size_t i = 0; i < partitions.size(); ++i) {
        partitions[i] = {.start = kMiB + i * 64 * kKiB, .length = 64 * kKiB};
    }
    MakeImage(partitions, 8 * kMiB);

    ExpectNothingBegun(Recover(65), Status(0xC000000D));
    EXPECT_EQ(Recover(64), 0);
    EXPECT_TRUE(TargetHolds(64));
}

TEST_F(RecoverShrinkToFitTest, OnlyTheFirst64PartitionsOfADiskAreSearched)
{
    SHOWS(KkRecoverShrinkToFit, KK_STATUS_INVALID_PARAMETER, "the disk's 65th partition is not found");
    SHOWS(KkRecoverShrinkToFit, KK_STATUS_SUCCESS, "the disk's 64th partition is found");

    std::vector<machine::GptPartition> partitions(65);
    for (size_t i = 0; i < partitions.size(); ++i) {
        partitions[i] = {.start = (1 + i) * kMiB, .length = kMiB};
    }
    machine.AddDisk(80 * kMiB).Gpt({.partitions = partitions});
    MakeImage(kMiB);

    ExpectNothingBegun(Recover(1, 65 * kMiB), Status(0xC000000D));
    EXPECT_EQ(Recover(1, 64 * kMiB), 0);
    EXPECT_TRUE(TargetHolds(1, 64 * kMiB));
}

TEST_F(RecoverShrinkToFitTest, AnImageThatChangesBetweenTheInspectionsIsSearchedAsFarAsBothTell)
{
    SHOWS(KkRecoverShrinkToFit, KK_STATUS_INVALID_PARAMETER,
          "an image that changes between two looks is searched as far as both tell");

    AddTarget(2 * kMiB);
    const machine::GptPartition first = {.start = kMiB, .length = kMiB};
    const machine::GptPartition second = {.start = 3 * kMiB, .length = kMiB};
    using Table = std::vector<machine::GptPartition>;
    for (const auto& [before, after] :
         {std::pair<Table, Table>{{first, second}, {first}}, {{first}, {first, second}}}) {
        MakeImage(before, 8 * kMiB);
        size_t opens = 0;
        const Hook<&NtCreateFile> hook([&](auto... arguments) {
            const kk::ObjectAttributes* const object = std::get<2>(std::tuple(arguments...));
            const std::u16string name(object->objectName->buffer, object->objectName->length / 2);
            if (name.ends_with(u"image.vhdx") && ++opens == 2) {
                MakeImage(after, 8 * kMiB);
            }
            return Hook<&NtCreateFile>::Original(arguments...);
        });

        EXPECT_EQ(api.recoverShrinkToFit(WindowsPath(imagePath).c_str(), 2, 0, kTargetStart), Status(0xC000000D));

        EXPECT_EQ(opens, 2u);
        EXPECT_FALSE(HasMadeAnOverlay());
    }
}

TEST_F(RecoverShrinkToFitTest, ALeftOverOverlayMakesItFailAndIsClearedAway)
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

TEST_F(RecoverShrinkToFitTest, AnOverlayThatCannotBeMountedIsDiscarded)
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

TEST_F(RecoverShrinkToFitTest, WithoutTheServiceALeftOverOverlayIsClearedAwayAllTheSame)
{
    SHOWS(KkRecoverShrinkToFit, KK_STATUS_NOT_FOUND,
          "the virtual-disk service creates no files; a left-over overlay is deleted");

    AddTarget(4 * kMiB);
    MakeImage(8 * kMiB);
    machine.modules.RemoveEntry(u"virtdisk.dll", "CreateVirtualDisk");
    std::ofstream(OverlayPath()) << "left over";

    EXPECT_EQ(Recover(), Status(0xC0000225));
}

TEST_F(RecoverShrinkToFitTest, AFailedShrinkIsToldAndTheTargetNotTouched)
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

TEST_F(RecoverShrinkToFitTest, AFailedCloneIsTold)
{
    SHOWS(KkRecoverShrinkToFit, 0xC0000185, "a failing write of the target is passed on");

    AddTarget(4 * kMiB);
    MakeImage(3 * kMiB);
    machine.faults.Fail({.kind = CallKind::WriteFile, .object = "HarddiskVolume"}, 1, 0xC0000185);

    EXPECT_EQ(Recover(), Status(0xC0000185));
}

TEST_F(RecoverShrinkToFitTest, ATargetWithoutAVolumeIsNoTarget)
{
    SHOWS(KkRecoverShrinkToFit, KK_STATUS_NO_MEDIA_IN_DEVICE, "the target has no volume");

    AddTarget(4 * kMiB);
    MakeImage(8 * kMiB);
    machine.HideVolume(*machine.FindVolume(0, kTargetStart));

    EXPECT_EQ(Recover(), Status(0xC0000013));

    EXPECT_THAT(ShrunkTo(), ElementsAre(4 * kMiB)) << "the overlay was, not the image";
    EXPECT_TRUE(TargetIsBlank());
}

TEST_F(RecoverShrinkToFitTest, AnOverlayWithoutAVolumeIsNoSource)
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

TEST_F(RecoverShrinkToFitTest, ADiskWhoseNumberIsNotToldIsOneThatNobodyHas)
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

TEST_F(RecoverShrinkToFitTest, ADiscardThatFailsChangesNothingAboutTheResult)
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
