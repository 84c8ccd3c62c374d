#include "exports/support/restore_test.h"
#include "exports/support/table_on_disk.h"

// Images, disks and volumes that end before the restore is done.

namespace {

using machine::CallKind;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class RestoreEndTest : public RestoreTest {
protected:
    static constexpr uint64_t kSize = 32 * kMiB;
    static constexpr uint64_t kSource = 2 * kMiB;
    static constexpr uint64_t kLength = kTransfer + 2 * kMiB;
    static constexpr uint64_t kStart = 4 * kMiB;
    static constexpr Place kTaken = {20 * kMiB, 10 * kMiB};

    RestoreEndTest()
    {
        MakeImage(kSmallGpt, {{kSource, kLength}}, kSize);
        AddTarget(kSmallGpt, {kTaken}, kSize);
    }

    /// Cuts the image off behind so many bytes of its partition.
    void CutImageOff(uint64_t bytes)
    {
        BeginCall();
        const std::filesystem::path file = folder / "image.vhdx";
        // The only block is the file's last 256 MiB.
        const uint64_t blockStart = std::filesystem::file_size(file) - 256 * kMiB;
        std::filesystem::resize_file(file, blockStart + kSource + bytes);
    }
};

TEST_F(RestoreEndTest, AnImageThatIsCutOffEndsARestoreToAVolume)
{
    SHOWS(KkRestoreToVolume, KK_STATUS_END_OF_FILE, "the image ends where data should be; what precedes is written");

    CutImageOff(kTransfer + 4096);

    EXPECT_EQ(RestoreToVolume(1, VolumeAt(kTaken.start), 1), KK_STATUS_END_OF_FILE);

    EXPECT_THAT(written, ElementsAre(Place{kTaken.start, kTransfer}));
    EXPECT_EQ(StepsLike("unlock"), 0u);
}

TEST_F(RestoreEndTest, AnImageThatIsCutOffEndsARestoreToFreeSpaceAndTheEntryStays)
{
    SHOWS(KkRestoreToFreeSpace, KK_STATUS_END_OF_FILE,
          "the image ends where data should be; the entry stays, and the system is not told");

    CutImageOff(4096);

    EXPECT_EQ(RestoreToFreeSpace(1, kStart, 12 * kMiB, 1), KK_STATUS_END_OF_FILE);

    ExpectOld(kStart, kLength);
    EXPECT_EQ(ReadSlots(Target(), kSmallGpt).at(1), (Place{kStart, kLength}));
    EXPECT_THAT(DriverKnows(), ElementsAre(kTaken));
}

TEST_F(RestoreEndTest, ADiskThatEndsInsideItsTableTakesNoPartition)
{
    SHOWS(KkRestoreToFreeSpace, KK_STATUS_END_OF_FILE, "the disk ends inside its table; no data is written");

    // The first read is that of the usable area, which need not be known.
    for (const uint64_t nth : {2u, 3u}) {
        machine.faults.Clear();
        machine.faults.Shorten({.kind = CallKind::ReadFile, .object = "PhysicalDrive0"}, nth, 0);

        EXPECT_EQ(RestoreToFreeSpace(1, kStart, 12 * kMiB), KK_STATUS_END_OF_FILE) << nth;

        EXPECT_THAT(written, IsEmpty());
    }
}

TEST_F(RestoreEndTest, AWriteThatMakesNoProgressEndsTheRestore)
{
    SHOWS(KkRestoreToVolume, KK_STATUS_UNSUCCESSFUL, "a write makes no progress; the volume is not extended");
    SHOWS(KkRestoreToFreeSpace, KK_STATUS_UNSUCCESSFUL, "a write of data makes no progress; the entry stays");
    SHOWS(KkCloneVolume, KK_STATUS_UNSUCCESSFUL, "a write makes no progress; the volume is not extended");

    machine.faults.Shorten({.kind = CallKind::WriteFile}, 2, 0);
    EXPECT_EQ(RestoreToVolume(1, VolumeAt(kTaken.start), 1), KK_STATUS_UNSUCCESSFUL);
    EXPECT_EQ(StepsLike("unlock"), 0u);

    machine.faults.Clear();
    machine.faults.Shorten({.kind = CallKind::WriteFile}, 1, 0);
    AddTarget(kSmallGpt, {{kMiB, kMiB}, kTaken}, kSize);
    EXPECT_EQ(CloneVolume(VolumeAt(kMiB), VolumeAt(kTaken.start), 1), KK_STATUS_UNSUCCESSFUL);
    EXPECT_EQ(StepsLike("unlock"), 0u);

    // Two arrays and two headers come before the data.
    machine.faults.Clear();
    machine.faults.Shorten({.kind = CallKind::WriteFile}, 5, 0);
    EXPECT_EQ(RestoreToFreeSpace(1, kStart, 12 * kMiB), KK_STATUS_UNSUCCESSFUL);
    EXPECT_EQ(ReadSlots(Target(), kSmallGpt).at(2), (Place{kStart, 12 * kMiB}));
}

TEST_F(RestoreEndTest, AFailingWriteOfWhatPrecedesAnUnreadablePlaceIsTold)
{
    SHOWS(KkCloneVolume, 0xC0000022, "a failing write of what precedes an unreadable place of the source is passed on");

    AddTarget(kSmallGpt, {{kMiB, kMiB}, kTaken}, kSize);
    // The source's only chunk, then the third of its pieces.
    machine.faults.Fail({.kind = CallKind::ReadFile}, 1, 0xC0000185);
    machine.faults.Fail({.kind = CallKind::ReadFile}, 4, 0xC0000185);
    machine.faults.Fail({.kind = CallKind::WriteFile}, 1, 0xC0000022);

    EXPECT_EQ(CloneVolume(VolumeAt(kMiB), VolumeAt(kTaken.start), 1), Status(0xC0000022));

    EXPECT_EQ(machine.journal.First({.kind = CallKind::WriteFile})->length, 1024u);
    EXPECT_THAT(written, IsEmpty());
    EXPECT_EQ(StepsLike("unlock"), 0u);
}

}  // namespace
