#include <cstring>

#include "disk/volume_controls.h"
#include "exports/support/restore_test.h"

// What KkRestoreToVolume does to a volume, in which order, and when the file system in it is extended.

namespace {

using machine::CallKind;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;

class RestoreToVolumeTest : public RestoreTest {
protected:
    static constexpr uint64_t kSize = 32 * kMiB;
    static constexpr uint64_t kSource = 2 * kMiB;
    static constexpr uint64_t kLength = 10 * kMiB;
    static constexpr uint64_t kStart = 4 * kMiB;
    static constexpr uint64_t kVolumeLength = 16 * kMiB;

    RestoreToVolumeTest()
    {
        MakeImage(kSmallGpt, {{kMiB, kMiB}, {kSource, kLength}}, kSize);
        AddTarget(kSmallGpt, {{kStart, kVolumeLength}}, kSize);
        NameVolume();
    }

    void NameVolume() { machine.SetVolumeNumber(*machine.FindVolume(0, kStart), 1); }

    int32_t Restore(uint32_t extend = 0, uint32_t number = 2)
    {
        return RestoreToVolume(number, VolumeAt(kStart), extend);
    }

    void AnswerNtfsData(int64_t numberSectors, uint32_t bytesPerSector)
    {
        machine.FindVolume(0, kStart)->SetNtfsData([=](const machine::ControlRequest& request) {
            EXPECT_EQ(request.outputRoom, 128u);
            kk::NtfsVolumeData data = {};
            data.numberSectors = numberSectors;
            data.bytesPerSector = bytesPerSector;
            return machine::ControlAnswer{.output = machine::BytesOf(data)};
        });
    }

    /// What extensions were asked for, in sectors.
    std::vector<uint64_t> Extensions() const
    {
        std::vector<uint64_t> sectors;
        for (const machine::CallRecord& call : machine.journal.FindAll({.code = 0x900F0})) {
            EXPECT_EQ(call.input.size(), 8u);
            uint64_t number = 0;
            std::memcpy(&number, call.input.data(), std::min(call.input.size(), sizeof(number)));
            sectors.push_back(number);
        }
        return sectors;
    }

    const std::vector<std::string> copied = {"open image",
                                             "read image",
                                             "open volume 1 for writing",
                                             "lock volume 1",
                                             "dismount volume 1",
                                             "size of volume 1",
                                             "read image",
                                             "write volume 1 at 0+8388608",
                                             "read image",
                                             "write volume 1 at 8388608+2097152",
                                             "flush volume 1",
                                             "unlock volume 1",
                                             "close volume 1"};

    static std::vector<std::string> Joined(std::vector<std::string> one, const std::vector<std::string>& other)
    {
        one.insert(one.end(), other.begin(), other.end());
        return one;
    }
};

TEST_F(RestoreToVolumeTest, TheVolumeBeginsWithThePartition)
{
    SHOWS(KkRestoreToVolume, KK_STATUS_SUCCESS, "the volume begins with the partition's bytes; the rest stays");

    ASSERT_EQ(Restore(), 0);

    ExpectRestored(kSource, kStart, kLength);
    ExpectOld(kStart + kLength, kVolumeLength - kLength);
    EXPECT_THAT(written, ElementsAre(Place{kStart, kTransfer}, Place{kStart + kTransfer, kLength - kTransfer}));
}

TEST_F(RestoreToVolumeTest, TheVolumeIsLockedDismountedFilledFlushedAndUnlocked)
{
    SHOWS(KkRestoreToVolume, KK_STATUS_SUCCESS,
          "the volume is locked, dismounted, filled, flushed and unlocked, in this order");

    ASSERT_EQ(Restore(), 0);

    EXPECT_THAT(Steps(), ElementsAreArray(Joined(copied, {"close image"})));
}

TEST_F(RestoreToVolumeTest, TheFileSystemIsExtendedThroughAHandleOfItsOwn)
{
    SHOWS(KkRestoreToVolume, KK_STATUS_SUCCESS,
          "the file system is extended to the volume's size, through a handle of its own");

    AnswerNtfsData(1000, 512);

    ASSERT_EQ(Restore(1), 0);

    EXPECT_THAT(Steps(), ElementsAreArray(
                             Joined(copied, {"open volume 1 for writing", "NTFS data of volume 1", "size of volume 1",
                                             "extend volume 1", "close volume 1", "close image"})));
    EXPECT_THAT(Extensions(), ElementsAre(kVolumeLength / 512));
}

TEST_F(RestoreToVolumeTest, AnyNumberButZeroAsksForTheExtension)
{
    SHOWS(KkRestoreToVolume, KK_STATUS_SUCCESS, "any number but 0 asks for the extension of the file system");

    AnswerNtfsData(1000, 512);
    for (const uint32_t yes : {1u, 0x100u, 0x80000000u}) {
        ASSERT_EQ(Restore(yes), 0);

        EXPECT_EQ(Extensions().size(), 1u) << std::hex << yes;
    }
    ASSERT_EQ(Restore(0), 0);
    EXPECT_THAT(Extensions(), IsEmpty());
}

TEST_F(RestoreToVolumeTest, TheExtensionCountsInTheFileSystemsSectors)
{
    SHOWS(KkRestoreToVolume, KK_STATUS_SUCCESS, "the extension counts in the file system's sectors, 0 as 512");

    AnswerNtfsData(1000, 4096);
    ASSERT_EQ(Restore(1), 0);
    EXPECT_THAT(Extensions(), ElementsAre(kVolumeLength / 4096));

    AnswerNtfsData(1000, 0);
    ASSERT_EQ(Restore(1), 0);
    EXPECT_THAT(Extensions(), ElementsAre(kVolumeLength / 512)) << "a size of 0 counts as 512";
}

TEST_F(RestoreToVolumeTest, AFileSystemThatFillsTheVolumeIsNotExtended)
{
    SHOWS(KkRestoreToVolume, KK_STATUS_SUCCESS, "a file system that fills the volume is not extended");

    const int64_t sectors = kVolumeLength / 512;
    for (const int64_t numberSectors : {sectors, sectors + 1, int64_t{-1}}) {
        AnswerNtfsData(numberSectors, 512);
        ASSERT_EQ(Restore(1), 0);
        EXPECT_THAT(Extensions(), IsEmpty()) << numberSectors;
    }
    AnswerNtfsData(sectors - 1, 512);
    ASSERT_EQ(Restore(1), 0);
    EXPECT_THAT(Extensions(), ElementsAre(sectors));
}

TEST_F(RestoreToVolumeTest, AnythingButNtfsIsNotExtended)
{
    SHOWS(KkRestoreToVolume, KK_STATUS_SUCCESS, "file systems other than NTFS are not extended");

    ASSERT_EQ(Restore(1), 0);

    EXPECT_THAT(Steps(), ElementsAreArray(Joined(copied, {"open volume 1 for writing", "NTFS data of volume 1",
                                                          "close volume 1", "close image"})));
}

TEST_F(RestoreToVolumeTest, AnExtensionThatFailsIsNoFailure)
{
    SHOWS(KkRestoreToVolume, KK_STATUS_SUCCESS, "whether the file system could be extended does not change the result");

    AnswerNtfsData(1000, 512);
    machine.faults.Fail({.kind = CallKind::CreateFile, .object = "HarddiskVolume1"}, 2, 0xC0000022);
    EXPECT_EQ(Restore(1), 0);
    EXPECT_EQ(machine.journal.Count({.code = 0x90064}), 0u);

    // The first of these is the size that the copy asks for.
    machine.faults.Clear();
    machine.faults.Fail({.code = 0x7405C}, 2, 0xC0000010);
    EXPECT_EQ(Restore(1), 0);
    EXPECT_THAT(Extensions(), IsEmpty());

    machine.faults.Clear();
    Fail({.code = 0x900F0}, 0xC0000010);
    EXPECT_EQ(Restore(1), 0);
    EXPECT_EQ(Extensions().size(), 1u);
}

TEST_F(RestoreToVolumeTest, AVolumeMayBeExactlyAsLongAsThePartition)
{
    SHOWS(KkRestoreToVolume, KK_STATUS_SUCCESS, "the volume may be exactly as long as the partition");

    PretendSize("HarddiskVolume1", kLength);

    EXPECT_EQ(Restore(), 0);

    ExpectRestored(kSource, kStart, kLength);
}

TEST_F(RestoreToVolumeTest, AVolumeThatIsAByteTooShortIsUnlockedUntouched)
{
    SHOWS(KkRestoreToVolume, KK_STATUS_BUFFER_TOO_SMALL,
          "the volume is a byte shorter than the partition; it was dismounted and nothing written");

    PretendSize("HarddiskVolume1", kLength - 1);

    EXPECT_EQ(Restore(1), KK_STATUS_BUFFER_TOO_SMALL);

    EXPECT_THAT(Steps(), ElementsAre("open image", "read image", "open volume 1 for writing", "lock volume 1",
                                     "dismount volume 1", "size of volume 1", "unlock volume 1", "close volume 1",
                                     "close image"));
    EXPECT_THAT(written, IsEmpty());
    EXPECT_EQ(std::ranges::count(machine.heap.Sizes(), kTransfer), 0) << "nor is a buffer taken";
}

TEST_F(RestoreToVolumeTest, APartitionAsLongAsNumbersGoDoesNotFit)
{
    SHOWS(KkRestoreToVolume, KK_STATUS_BUFFER_TOO_SMALL, "a partition as long as numbers go does not fit");

    PutInImage(1024 + 128 + 40, machine::BytesOf((uint64_t{1} << 55) - 2));

    EXPECT_EQ(Restore(), KK_STATUS_BUFFER_TOO_SMALL);

    EXPECT_THAT(written, IsEmpty());
}

TEST_F(RestoreToVolumeTest, AVolumeThatDoesNotTellItsSizeIsNotMeasured)
{
    SHOWS(KkRestoreToVolume, KK_STATUS_SUCCESS, "a volume that does not tell its size is not measured");

    Fail({.code = 0x7405C}, 0xC0000010);
    EXPECT_EQ(Restore(), 0);
    ExpectRestored(kSource, kStart, kLength);
}

TEST_F(RestoreToVolumeTest, WithoutASizeALengthBeyondTheImageEndsWithTheImage)
{
    SHOWS(KkRestoreToVolume, KK_STATUS_SUCCESS,
          "without the volume's size a length beyond the image ends with the image");

    PutInImage(1024 + 128 + 40, machine::BytesOf((uint64_t{1} << 55) - 2));
    PutZerosInImage(kSize - kMiB, kMiB);
    Fail({.code = 0x7405C}, 0xC0000010);

    EXPECT_EQ(Restore(), 0);

    EXPECT_THAT(written, ElementsAre(Place{kStart, kTransfer}, Place{kStart + kTransfer, kTransfer}));
    ExpectRestored(kSource, kStart, kTransfer);
}

TEST_F(RestoreToVolumeTest, ALockOrDismountThatIsRefusedStopsNothing)
{
    SHOWS(KkRestoreToVolume, KK_STATUS_SUCCESS, "a refused lock or dismount stops nothing");

    Fail({.code = 0x90018}, 0xC0000022);
    Fail({.code = 0x90020}, 0xC0000022);

    EXPECT_EQ(Restore(), 0);

    EXPECT_THAT(Steps(), ElementsAreArray(Joined(copied, {"close image"}))) << "every step is taken all the same";
}

TEST_F(RestoreToVolumeTest, AFlushOrUnlockThatFailsIsNoFailure)
{
    SHOWS(KkRestoreToVolume, KK_STATUS_SUCCESS, "a flush or unlock that fails does not matter");

    Fail({.kind = CallKind::Flush}, 0xC0000185);
    Fail({.code = 0x9001C}, 0xC0000185);

    EXPECT_EQ(Restore(), 0);

    EXPECT_THAT(Steps(), ElementsAreArray(Joined(copied, {"close image"})));
}

TEST_F(RestoreToVolumeTest, AFailingCopyLeavesTheUnlockingToTheClose)
{
    SHOWS(KkRestoreToVolume, 0xC0000185, "a failing write is passed on; the volume is partly written and not extended");

    machine.faults.Fail({.kind = CallKind::WriteFile}, 2, 0xC0000185);

    EXPECT_EQ(Restore(1), Status(0xC0000185));

    EXPECT_THAT(Steps(),
                ElementsAre("open image", "read image", "open volume 1 for writing", "lock volume 1",
                            "dismount volume 1", "size of volume 1", "read image", "write volume 1 at 0+8388608",
                            "read image", "write volume 1 at 8388608+2097152", "close volume 1", "close image"));
    ExpectRestored(kSource, kStart, kTransfer);
    ExpectOld(kStart + kTransfer, kTransfer);
}

TEST_F(RestoreToVolumeTest, AReadThatFailsDoesTheSame)
{
    SHOWS(KkRestoreToVolume, 0xC0000185, "a failing read of the image is passed on; the volume is not extended");

    Restore();
    const uint64_t reads = machine.journal.Count({.kind = CallKind::ReadFile});
    machine.faults.Fail({.kind = CallKind::ReadFile}, reads, 0xC0000185);

    EXPECT_EQ(Restore(1), Status(0xC0000185));

    EXPECT_EQ(StepsLike("unlock") + StepsLike("flush"), 0u);
    EXPECT_EQ(StepsLike("open volume"), 1u) << "and nothing is extended";
}

TEST_F(RestoreToVolumeTest, WithoutMemoryForTheBufferNothingIsWritten)
{
    SHOWS(KkRestoreToVolume, KK_STATUS_NO_MEMORY,
          "no memory for the buffer; the volume was dismounted and nothing written");

    machine.heap.SetLimit(4 * kMiB);

    EXPECT_EQ(Restore(1), KK_STATUS_NO_MEMORY);

    EXPECT_THAT(Steps(), ElementsAre("open image", "read image", "open volume 1 for writing", "lock volume 1",
                                     "dismount volume 1", "size of volume 1", "close volume 1", "close image"));
    ExpectOld(kStart, kVolumeLength);
}

TEST_F(RestoreToVolumeTest, OneBufferIsTakenAndGivenBack)
{
    SHOWS(KkRestoreToVolume, KK_STATUS_SUCCESS, "one buffer is taken and freed");

    ASSERT_EQ(Restore(1), 0);

    EXPECT_EQ(std::ranges::count(machine.heap.Sizes(), kTransfer), 1);
    EXPECT_LT(machine.heap.PeakBytes(), kTransfer + 64 * kKiB);
}

TEST_F(RestoreToVolumeTest, AChunkOfZerosLeavesWhatTheVolumeHeld)
{
    SHOWS(KkRestoreToVolume, KK_STATUS_SUCCESS, "8 MiB of zeros are not written; the volume's old bytes stay there");

    PutZerosInImage(kSource, kTransfer);

    ASSERT_EQ(Restore(), 0);

    ExpectOld(kStart, kTransfer);
    ExpectRestored(kSource + kTransfer, kStart + kTransfer, kLength - kTransfer);
}

TEST_F(RestoreToVolumeTest, ANumberThatTheImageDoesNotHaveLeavesTheVolumeAlone)
{
    SHOWS(KkRestoreToVolume, KK_STATUS_INVALID_PARAMETER, "the image has no such partition; the volume is not opened");

    for (const uint32_t number : {0u, 3u, 129u}) {
        EXPECT_EQ(Restore(0, number), KK_STATUS_INVALID_PARAMETER);
        EXPECT_THAT(Steps(), ElementsAre("open image", "read image", "close image"));
    }
}

TEST_F(RestoreToVolumeTest, AnImageWithAnMbrServesToo)
{
    SHOWS(KkRestoreToVolume, KK_STATUS_SUCCESS, "an image with an MBR serves too");

    MakeImage(kSmallMbr, {{kMiB, kMiB}, {kSource, kLength}}, kSize);

    ASSERT_EQ(Restore(), 0);

    ExpectRestored(kSource, kStart, kLength);
}

TEST_F(RestoreToVolumeTest, AnImageWithoutATableTellsWhatTheGptLacks)
{
    SHOWS(KkRestoreToVolume, KK_STATUS_REGISTRY_CORRUPT, "the image's disk has no table");

    MakeBlankImage(kSize);

    EXPECT_EQ(Restore(), KK_STATUS_REGISTRY_CORRUPT);

    EXPECT_EQ(StepsLike("volume"), 0u);
}

TEST_F(RestoreToVolumeTest, BothPathsAreRequired)
{
    SHOWS(KkRestoreToVolume, KK_STATUS_INVALID_PARAMETER, "a path is null; nothing is done");

    BeginCall();

    EXPECT_EQ(api.restoreToVolume(nullptr, 2, VolumeAt(kStart).c_str(), 1), KK_STATUS_INVALID_PARAMETER);
    EXPECT_EQ(api.restoreToVolume(ImagePath().c_str(), 2, nullptr, 1), KK_STATUS_INVALID_PARAMETER);

    EXPECT_THAT(machine.journal.Records(), IsEmpty());
}

TEST_F(RestoreToVolumeTest, WhatDoesNotOpenEndsTheCall)
{
    SHOWS(KkRestoreToVolume, 0xC0000034, "the status of a volume or an image that does not open is passed on");

    EXPECT_EQ(RestoreToVolume(2, u"\\Device\\HarddiskVolume99"), machine::kObjectNameNotFound);
    BeginCall();
    EXPECT_EQ(api.restoreToVolume(u"Z:\\nowhere.vhdx", 2, VolumeAt(kStart).c_str(), 1), machine::kObjectNameNotFound);
    EXPECT_EQ(StepsLike("volume"), 0u);
}

TEST_F(RestoreToVolumeTest, AVolumeMayBeNamedByItsPath)
{
    SHOWS(KkRestoreToVolume, KK_STATUS_SUCCESS, "the volume may be named by its path without the backslash at its end");

    std::u16string path = machine.FindVolume(0, kStart)->Path();
    path.pop_back();

    ASSERT_EQ(RestoreToVolume(2, path, 1), 0);

    ExpectRestored(kSource, kStart, kLength);
}

TEST_F(RestoreToVolumeTest, ALockedVolumeMayBeOverwrittenWhereMountedOnesAreProtected)
{
    SHOWS(KkRestoreToVolume, KK_STATUS_SUCCESS,
          "a volume that could be locked may be overwritten where mounted ones are protected");

    machine.Strict();
    Target().Format(kStart, kVolumeLength, machine::FileSystem::Fat16);

    EXPECT_EQ(Restore(), 0);

    ExpectRestored(kSource, kStart, kLength);
}

TEST_F(RestoreToVolumeTest, AVolumeThatTheSystemUsesRefusesTheFirstWrite)
{
    SHOWS(KkRestoreToVolume, 0xC0000022,
          "a volume that the system uses cannot be locked, and refuses the first write; nothing changes");

    machine.Strict();
    Target().Format(kStart, kVolumeLength, machine::FileSystem::Fat16);
    machine.FindVolume(0, kStart)->SetInUseBySystem();
    const DiskBytes before(Target());

    EXPECT_EQ(Restore(), machine::kAccessDenied);

    before.ExpectUnchanged();
}

}  // namespace
