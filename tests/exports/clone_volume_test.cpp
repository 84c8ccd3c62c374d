#include "exports/support/clone_volume_test.h"

// How far KkCloneVolume copies, and what of it is written.

namespace {

using machine::CallKind;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

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
