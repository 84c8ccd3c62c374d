#include <algorithm>

#include "disk/volume_controls.h"
#include "exports/support/restore_test.h"
#include "support/scripted_device.h"

// What KkCloneVolume copies, how it treats what cannot be read, and what it does to both volumes in which order.

namespace {

using machine::CallKind;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;

class CloneVolumeTest : public RestoreTest {
protected:
    static constexpr uint64_t kSize = 48 * kMiB;
    static constexpr uint64_t kSource = kMiB;
    static constexpr uint64_t kLength = 10 * kMiB;
    static constexpr uint64_t kStart = 16 * kMiB;
    static constexpr uint64_t kTargetLength = 24 * kMiB;

    CloneVolumeTest()
    {
        AddTarget(kSmallGpt, {{kSource, kLength}, {kStart, kTargetLength}}, kSize);
        machine.SetVolumeNumber(*machine.FindVolume(0, kSource), 1);
        machine.SetVolumeNumber(*machine.FindVolume(0, kStart), 2);
        Target().WriteBytes(kSource, Pattern(kLength, 1));
    }

    int32_t Clone(uint32_t extend = 0)
    {
        return CloneVolume(u"\\Device\\HarddiskVolume1", u"\\Device\\HarddiskVolume2", extend);
    }

    /// The volume at that place says that NTFS has so many sectors there.
    void AnswerNtfsData(uint64_t start, int64_t numberSectors, uint32_t bytesPerSector)
    {
        machine.FindVolume(0, start)->SetNtfsData([=](const machine::ControlRequest& request) {
            EXPECT_EQ(request.outputRoom, 128u);
            kk::NtfsVolumeData data = {};
            data.numberSectors = numberSectors;
            data.bytesPerSector = bytesPerSector;
            return machine::ControlAnswer{.output = machine::BytesOf(data)};
        });
    }

    /// So many bytes from the source's beginning are on the target, and nothing behind them has changed.
    void ExpectCopied(uint64_t bytes)
    {
        EXPECT_TRUE(Target().ReadBytes(kSource, bytes) == Target().ReadBytes(kStart, bytes));
        ExpectOld(kStart + bytes, kTargetLength - bytes);
    }

    std::vector<Place> Transfers(CallKind kind, const char* object) const
    {
        std::vector<Place> places;
        for (const machine::CallRecord& call : machine.journal.FindAll({.kind = kind, .object = object})) {
            places.push_back({call.offset, call.length});
        }
        return places;
    }

    /// Sectors of the source that cannot be read any more.
    void BreakSource(uint64_t firstByte, uint64_t bytes = 512)
    {
        AddScriptedSource(kLength);
        badStart = firstByte;
        badEnd = firstByte + bytes;
    }

    /// A source of any length that is no NTFS volume: the pattern of volume 1, read from a device without sectors.
    void AddScriptedSource(uint64_t size)
    {
        device = ScriptedDevice::AddTo(machine);
        device->control = [size](const machine::ControlRequest& request) {
            return request.code == 0x7405C ? machine::ControlAnswer{.output = machine::BytesOf(size)}
                                           : machine::ControlAnswer{.status = machine::kInvalidDeviceRequest};
        };
        device->read = [this](uint64_t offset, std::span<uint8_t> into) {
            if (offset < badEnd && offset + into.size() > badStart) {
                return machine::IoResult{machine::kIoDeviceError, 0};
            }
            const std::vector<uint8_t> bytes = Target().ReadBytes(kSource + offset, into.size());
            std::ranges::copy(bytes, into.begin());
            return machine::IoResult{machine::kSuccess, into.size()};
        };
    }
    int32_t CloneScripted(uint32_t extend = 0)
    {
        return CloneVolume(ScriptedDevice::kName, u"\\Device\\HarddiskVolume2", extend);
    }

    std::shared_ptr<ScriptedDevice> device;
    uint64_t badStart = 0;
    uint64_t badEnd = 0;
};

TEST_F(CloneVolumeTest, AVolumeThatIsNotNtfsIsCopiedWhole)
{
    SHOWS(KkCloneVolume, KK_STATUS_SUCCESS, "a volume that is not NTFS is copied whole, 8 MiB at a time");

    ASSERT_EQ(Clone(), 0);

    ExpectCopied(kLength);
    EXPECT_THAT(Transfers(CallKind::ReadFile, "HarddiskVolume1"),
                ElementsAre(Place{0, kTransfer}, Place{kTransfer, 2 * kMiB}));
    EXPECT_THAT(Transfers(CallKind::WriteFile, "HarddiskVolume2"),
                ElementsAre(Place{0, kTransfer}, Place{kTransfer, 2 * kMiB}));
}

TEST_F(CloneVolumeTest, OfAnNtfsVolumeTheFileSystemsSectorsAreCopied)
{
    SHOWS(KkCloneVolume, KK_STATUS_SUCCESS, "an NTFS volume is copied as far as its file system reaches");

    AnswerNtfsData(kSource, 1000, 512);

    ASSERT_EQ(Clone(), 0);

    ExpectCopied(512'000);
    EXPECT_THAT(written, ElementsAre(Place{kStart, 512'000}));
    EXPECT_EQ(StepsLike("size of volume 1"), 0u) << "the volume's own size does not matter";
}

TEST_F(CloneVolumeTest, TheFileSystemsSectorSizeCounts)
{
    SHOWS(KkCloneVolume, KK_STATUS_SUCCESS, "the file system's sector size counts, 0 as 512");

    AnswerNtfsData(kSource, 1000, 4096);
    ASSERT_EQ(Clone(), 0);
    EXPECT_THAT(written, ElementsAre(Place{kStart, 4'096'000}));

    AnswerNtfsData(kSource, 1000, 0);
    ASSERT_EQ(Clone(), 0);
    EXPECT_THAT(written, ElementsAre(Place{kStart, 512'000})) << "a size of 0 counts as 512";
}

TEST_F(CloneVolumeTest, AnNtfsVolumeOfNoSectorsIsCopiedWhole)
{
    SHOWS(KkCloneVolume, KK_STATUS_SUCCESS, "an NTFS volume that reports no sectors is copied whole");

    AnswerNtfsData(kSource, 0, 512);

    ASSERT_EQ(Clone(), 0);

    ExpectCopied(kLength);
}

TEST_F(CloneVolumeTest, BothAreOpenedBeforeTheTargetIsLockedAndClosedBeforeItIsExtended)
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

TEST_F(CloneVolumeTest, AnyNumberButZeroAsksForTheExtension)
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

TEST_F(CloneVolumeTest, TheSourceIsOnlyRead)
{
    SHOWS(KkCloneVolume, KK_STATUS_SUCCESS, "the source is only read: not locked, dismounted or flushed");

    ASSERT_EQ(Clone(1), 0);

    EXPECT_EQ(StepsLike("lock volume 1") + StepsLike("dismount volume 1") + StepsLike("flush volume 1"), 0u);
    EXPECT_EQ(machine.journal.First({.kind = CallKind::CreateFile})->access & machine::kFileWriteData, 0u);
}

TEST_F(CloneVolumeTest, ASourceOfUnknownSizeIsNotCopied)
{
    SHOWS(KkCloneVolume, KK_STATUS_UNSUCCESSFUL, "the source does not tell its size; the target is not opened");

    Fail({.code = 0x7405C}, 0xC0000010);

    EXPECT_EQ(Clone(), KK_STATUS_UNSUCCESSFUL);

    EXPECT_THAT(Steps(), ElementsAre("open volume 1", "NTFS data of volume 1", "size of volume 1", "close volume 1"))
        << "and the target is not opened";
}

TEST_F(CloneVolumeTest, WhatDoesNotOpenEndsTheCall)
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

TEST_F(CloneVolumeTest, BothPathsAreRequired)
{
    SHOWS(KkCloneVolume, KK_STATUS_INVALID_PARAMETER, "a path is null; nothing is done");

    BeginCall();

    EXPECT_EQ(api.cloneVolume(nullptr, u"\\Device\\HarddiskVolume2", 1), KK_STATUS_INVALID_PARAMETER);
    EXPECT_EQ(api.cloneVolume(u"\\Device\\HarddiskVolume1", nullptr, 1), KK_STATUS_INVALID_PARAMETER);

    EXPECT_THAT(machine.journal.Records(), IsEmpty());
}

TEST_F(CloneVolumeTest, ATargetThatIsAByteTooSmallIsNotEvenLocked)
{
    SHOWS(KkCloneVolume, KK_STATUS_BUFFER_TOO_SMALL,
          "the target is a byte smaller than what is to be copied; it is not even locked");

    PretendSize("HarddiskVolume2", kLength - 1);

    EXPECT_EQ(Clone(1), KK_STATUS_BUFFER_TOO_SMALL);

    EXPECT_THAT(Steps(),
                ElementsAre("open volume 1", "NTFS data of volume 1", "size of volume 1", "open volume 2 for writing",
                            "size of volume 2", "close volume 2", "close volume 1"));
    EXPECT_THAT(written, IsEmpty());
}

TEST_F(CloneVolumeTest, ATargetMayBeExactlyAsLarge)
{
    SHOWS(KkCloneVolume, KK_STATUS_SUCCESS, "the target may be exactly as large as what is to be copied");

    PretendSize("HarddiskVolume2", kLength);

    EXPECT_EQ(Clone(), 0);

    ExpectCopied(kLength);
}

TEST_F(CloneVolumeTest, ATargetThatDoesNotTellItsSizeIsNotMeasured)
{
    SHOWS(KkCloneVolume, KK_STATUS_SUCCESS, "a target that does not tell its size is not measured");

    PretendSize("HarddiskVolume2", 0);

    EXPECT_EQ(Clone(), 0);

    ExpectCopied(kLength);
}

TEST_F(CloneVolumeTest, ALengthBeyondAllNumbersIsNotCutToASmallOne)
{
    SHOWS(KkCloneVolume, KK_STATUS_BUFFER_TOO_SMALL, "lengths beyond all numbers are not cut to small ones");

    for (const auto& [sectors, size] : {std::pair{INT64_MAX, 4096u}, {int64_t{1} << 55, 512u}, {int64_t{-1}, 512u}}) {
        AnswerNtfsData(kSource, sectors, size);

        EXPECT_EQ(Clone(), KK_STATUS_BUFFER_TOO_SMALL) << sectors;
        EXPECT_THAT(written, IsEmpty());
    }
}

TEST_F(CloneVolumeTest, WithoutATargetsSizeALengthBeyondTheSourceEndsWithTheSource)
{
    SHOWS(KkCloneVolume, KK_STATUS_SUCCESS,
          "without the target's size a length beyond the source ends with the source");

    AnswerNtfsData(kSource, INT64_MAX, 4096);
    PretendSize("HarddiskVolume2", 0);

    EXPECT_EQ(Clone(), 0);

    ExpectCopied(kLength);
}

TEST_F(CloneVolumeTest, AChunkOfZerosIsReadAndNotWritten)
{
    SHOWS(KkCloneVolume, KK_STATUS_SUCCESS, "8 MiB of zeros are read and not written");

    Target().WriteBytes(kSource, std::vector<uint8_t>(kTransfer));

    ASSERT_EQ(Clone(), 0);

    EXPECT_EQ(Transfers(CallKind::ReadFile, "HarddiskVolume1").size(), 2u);
    EXPECT_THAT(written, ElementsAre(Place{kStart + kTransfer, 2 * kMiB}));
    ExpectOld(kStart, kTransfer);
}

TEST_F(CloneVolumeTest, AChunkWithOneOtherByteIsWrittenWhole)
{
    SHOWS(KkCloneVolume, KK_STATUS_SUCCESS, "8 MiB with one other byte are written whole");

    for (const uint64_t position : {uint64_t{0}, kTransfer - 1}) {
        Target().WriteBytes(kSource, std::vector<uint8_t>(kLength));
        Target().WriteBytes(kSource + position, std::vector<uint8_t>{0x80});

        ASSERT_EQ(Clone(), 0);

        EXPECT_THAT(written, ElementsAre(Place{kStart, kTransfer})) << position;
    }
}

TEST_F(CloneVolumeTest, OneBufferIsTakenAndGivenBack)
{
    SHOWS(KkCloneVolume, KK_STATUS_SUCCESS, "one buffer is taken and freed");

    ASSERT_EQ(Clone(1), 0);

    EXPECT_EQ(std::ranges::count(machine.heap.Sizes(), kTransfer), 1);
    EXPECT_LT(machine.heap.PeakBytes(), kTransfer + 4096);
}

TEST_F(CloneVolumeTest, WithoutMemoryForTheBufferTheTargetIsClosedAsItIs)
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

TEST_F(CloneVolumeTest, ALockOrDismountThatIsRefusedStopsNothing)
{
    SHOWS(KkCloneVolume, KK_STATUS_SUCCESS, "a refused lock or dismount stops nothing");

    Fail({.code = 0x90018}, 0xC0000022);
    Fail({.code = 0x90020}, 0xC0000022);

    EXPECT_EQ(Clone(), 0);

    EXPECT_EQ(StepsLike("dismount volume 2"), 1u);
    ExpectCopied(kLength);
}

TEST_F(CloneVolumeTest, AFlushOrUnlockThatFailsIsNoFailure)
{
    SHOWS(KkCloneVolume, KK_STATUS_SUCCESS, "a flush or unlock that fails does not matter");

    Fail({.kind = CallKind::Flush}, 0xC0000185);
    Fail({.code = 0x9001C}, 0xC0000185);

    EXPECT_EQ(Clone(), 0);

    EXPECT_EQ(StepsLike("unlock volume 2"), 1u);
}

TEST_F(CloneVolumeTest, AWriteThatFailsEndsTheCallWithoutAnUnlock)
{
    SHOWS(KkCloneVolume, 0xC0000185, "a failing write is passed on; the target is partly written and not extended");

    machine.faults.Fail({.kind = CallKind::WriteFile}, 2, 0xC0000185);

    EXPECT_EQ(Clone(1), Status(0xC0000185));

    EXPECT_EQ(StepsLike("flush") + StepsLike("unlock"), 0u);
    EXPECT_EQ(StepsLike("open volume 2"), 1u) << "nothing is extended";
    ExpectCopied(kTransfer);
}

TEST_F(CloneVolumeTest, WhatPrecedesAnUnreadablePieceIsCopiedAndThatIsSuccess)
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

TEST_F(CloneVolumeTest, AnUnreadablePieceInALaterChunkEndsTheCopyThere)
{
    SHOWS(KkCloneVolume, KK_STATUS_SUCCESS, "an unreadable place further on ends the copy there");

    BreakSource(kTransfer + 512 * 100 + 5, 1);

    EXPECT_EQ(CloneScripted(), 0);

    ExpectCopied(kTransfer + 512 * 100);
    EXPECT_THAT(written, ElementsAre(Place{kStart, kTransfer}, Place{kStart + kTransfer, 512 * 100}));
}

TEST_F(CloneVolumeTest, AnUnreadableBeginningLeavesNothingToCopy)
{
    SHOWS(KkCloneVolume, KK_STATUS_SUCCESS, "a source whose beginning is unreadable leaves nothing to copy");

    BreakSource(0);

    EXPECT_EQ(CloneScripted(), 0);

    EXPECT_THAT(written, IsEmpty());
    EXPECT_THAT(Transfers(CallKind::ReadFile, "Scripted"), ElementsAre(Place{0, kTransfer}, Place{0, 512}));
    EXPECT_EQ(StepsLike("unlock volume 2"), 1u);
}

TEST_F(CloneVolumeTest, ZerosBeforeAnUnreadablePieceAreNotWritten)
{
    SHOWS(KkCloneVolume, KK_STATUS_SUCCESS, "zeros before an unreadable place are not written");

    Target().WriteBytes(kSource, std::vector<uint8_t>(4096));
    BreakSource(4096);

    EXPECT_EQ(CloneScripted(), 0);

    EXPECT_THAT(written, IsEmpty());
}

TEST_F(CloneVolumeTest, PiecesThatAreReadAfterAllAreWrittenAsOneAndTheCopyGoesOn)
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

TEST_F(CloneVolumeTest, PiecesHave512BytesWhateverTheSectorSize)
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

TEST_F(CloneVolumeTest, ATailBelow512BytesIsNotReadAgain)
{
    SHOWS(KkCloneVolume, KK_STATUS_SUCCESS, "a tail below 512 bytes is not read again");

    AddScriptedSource(kTransfer + 511);
    badStart = kTransfer;
    badEnd = kTransfer + 1;

    EXPECT_EQ(CloneScripted(), 0);

    EXPECT_THAT(Transfers(CallKind::ReadFile, "Scripted"), ElementsAre(Place{0, kTransfer}, Place{kTransfer, 511}));
    ExpectCopied(kTransfer);
}

TEST_F(CloneVolumeTest, PiecesEndWhereTheNextWouldPassTheChunk)
{
    SHOWS(KkCloneVolume, KK_STATUS_SUCCESS, "pieces of 512 bytes that would pass the chunk's end are not read");

    AddScriptedSource(1300);
    machine.faults.Fail({.kind = CallKind::ReadFile}, 1, 0xC0000185);

    EXPECT_EQ(CloneScripted(), 0);

    EXPECT_THAT(Transfers(CallKind::ReadFile, "Scripted"), ElementsAre(Place{0, 1300}, Place{0, 512}, Place{512, 512}));
    ExpectCopied(1024);
}

TEST_F(CloneVolumeTest, AChunkOf512BytesIsReadAgain)
{
    SHOWS(KkCloneVolume, KK_STATUS_SUCCESS, "a chunk of 512 bytes is read again");

    AddScriptedSource(512);
    machine.faults.Fail({.kind = CallKind::ReadFile}, 1, 0xC0000185);

    EXPECT_EQ(CloneScripted(), 0);

    ExpectCopied(512);
}

TEST_F(CloneVolumeTest, ALengthThatIsNoWholeSectorIsCopiedToTheByteWhereTheTargetTakesIt)
{
    SHOWS(KkCloneVolume, KK_STATUS_SUCCESS,
          "a length that is no whole sector is copied to the byte where the target takes that");

    AddScriptedSource(kTransfer + 1000);
    Shell("head -c 9000000 /dev/zero | tr '\\0' '\\356' > '" + (folder / "target").string() + "'");

    EXPECT_EQ(CloneVolume(ScriptedDevice::kName, WindowsPath(folder / "target")), 0);

    const std::string file = ReadFile(folder / "target");
    const std::vector<uint8_t> source = Target().ReadBytes(kSource, kTransfer + 1000);
    EXPECT_EQ(file.substr(0, source.size()), std::string(source.begin(), source.end()));
    EXPECT_EQ(static_cast<uint8_t>(file[source.size()]), kOldByte);
}

TEST_F(CloneVolumeTest, ASystemThatKeepsTheFileSystemsEndReadsNoFurther)
{
    SHOWS(KkCloneVolume, KK_STATUS_SUCCESS, "NTFS is copied where the system ends reads with the file system");

    machine.Strict();
    Target().Format(kSource, kLength, machine::FileSystem::Ntfs);

    EXPECT_EQ(Clone(), 0);

    ExpectCopied(kLength - 512);
}

}  // namespace
