#include <algorithm>

#include "exports/support/restore_test.h"

// How bytes get from an image onto a disk, in which order things happen and what a failure leaves behind.

namespace {

using machine::CallKind;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;

class RestoreCopyTest : public RestoreTest {
protected:
    static constexpr uint64_t kSize = 32 * kMiB;
    static constexpr uint64_t kStart = kMiB;
    static constexpr uint64_t kLength = 2 * kTransfer + 4 * kMiB + 512;

    RestoreCopyTest()
    {
        MakeImage(kSmallGpt, {{kStart, kLength}}, kSize);
        AddTarget(kSize);
    }

    static std::string WriteAt(uint64_t offset, uint64_t length)
    {
        return "write drive 0 at " + std::to_string(offset) + "+" + std::to_string(length);
    }

    /// Lengths of the image's reads since the target was opened, which are those of data and of the 8 bytes that say
    /// where in the file the data lies.
    std::vector<uint64_t> DataReads() const
    {
        const uint64_t opened = machine.journal.First({.kind = CallKind::CreateFile, .object = "PhysicalDrive"})->index;
        std::vector<uint64_t> lengths;
        for (const machine::CallRecord& read : machine.journal.FindAll({.kind = CallKind::ReadFile})) {
            if (read.index > opened && read.length != 8) {
                lengths.push_back(read.length);
            }
        }
        return lengths;
    }
};

TEST_F(RestoreCopyTest, MovesEightMebibytesAtATime)
{
    SHOWS(KkRestorePartitions, KK_STATUS_SUCCESS, "data goes 8 MiB at a time");

    ASSERT_EQ(RestorePartitions(), 0);

    EXPECT_THAT(DataReads(), ElementsAre(kTransfer, kTransfer, 4 * kMiB + 512));
    EXPECT_THAT(written, ElementsAre(Place{kStart, kTransfer}, Place{kStart + kTransfer, kTransfer},
                                     Place{kStart + 2 * kTransfer, 4 * kMiB + 512}));
}

TEST_F(RestoreCopyTest, AWholeNumberOfChunksHasNoEmptyOneBehindIt)
{
    SHOWS(KkRestorePartitions, KK_STATUS_SUCCESS, "a whole number of chunks has no empty one behind it");

    MakeImage(kSmallGpt, {{kStart, 2 * kTransfer}}, kSize);

    ASSERT_EQ(RestorePartitions(), 0);

    EXPECT_THAT(DataReads(), ElementsAre(kTransfer, kTransfer));
    EXPECT_EQ(written.size(), 2u);
}

TEST_F(RestoreCopyTest, TakesOneBufferForAllPartitions)
{
    SHOWS(KkRestorePartitions, KK_STATUS_SUCCESS, "one buffer is taken for all partitions, and freed");

    MakeImage(kSmallGpt, {{kMiB, 9 * kMiB}, {12 * kMiB, kMiB}, {16 * kMiB, 9 * kMiB}}, kSize);

    ASSERT_EQ(RestorePartitions({}, 1), 0);

    EXPECT_EQ(std::ranges::count(machine.heap.Sizes(), kTransfer), 1);
    EXPECT_LT(machine.heap.PeakBytes(), kTransfer + 64 * kKiB);
    EXPECT_EQ(machine.heap.LiveBlocks(), 0u);
}

TEST_F(RestoreCopyTest, AChunkOfZerosLeavesWhatTheTargetHeld)
{
    SHOWS(KkRestorePartitions, KK_STATUS_SUCCESS,
          "8 MiB of zeros are read and not written; the disk's old bytes stay there");

    PutZerosInImage(kStart + kTransfer, kTransfer);

    ASSERT_EQ(RestorePartitions(), 0);

    EXPECT_THAT(DataReads(), ElementsAre(kTransfer, kTransfer, 4 * kMiB + 512)) << "it is read all the same";
    ExpectRestored(kStart, kStart, kTransfer);
    ExpectOld(kStart + kTransfer, kTransfer);
    ExpectRestored(kStart + 2 * kTransfer, kStart + 2 * kTransfer, kLength - 2 * kTransfer);
    EXPECT_EQ(written.size(), 2u);
}

TEST_F(RestoreCopyTest, AChunkWithOneOtherByteIsWrittenWhole)
{
    SHOWS(KkRestorePartitions, KK_STATUS_SUCCESS, "8 MiB with one other byte are written whole");

    for (const uint64_t position : {uint64_t{0}, uint64_t{1}, kTransfer / 2 + 3, kTransfer - 1}) {
        PutZerosInImage(kStart, kLength);
        PutInImage(kStart + kTransfer + position, {0x01});
        AddTarget(kSize);

        ASSERT_EQ(RestorePartitions(), 0);

        EXPECT_THAT(written, ElementsAre(Place{kStart + kTransfer, kTransfer})) << position;
        ExpectRestored(kStart + kTransfer, kStart + kTransfer, kTransfer);
        ExpectOld(kStart, kTransfer);
    }
}

TEST_F(RestoreCopyTest, ChunksAreCountedFromThePartitionsStart)
{
    SHOWS(KkRestorePartitions, KK_STATUS_SUCCESS, "chunks are counted from the partition's start");

    PutZerosInImage(0x200000, kSize - 0x200000 - kMiB);
    PutInImage(kStart + kLength - 1, {0xFF});

    ASSERT_EQ(RestorePartitions(), 0);

    EXPECT_THAT(written, ElementsAre(Place{kStart, kTransfer}, Place{kStart + 2 * kTransfer, 4 * kMiB + 512}));
}

TEST_F(RestoreCopyTest, APartitionOfZerosWritesNothing)
{
    SHOWS(KkRestorePartitions, KK_STATUS_SUCCESS, "a partition of zeros writes nothing");

    PutZerosInImage(kStart, kLength);

    EXPECT_EQ(RestorePartitions(), 0);

    ExpectOld(0, kSize);
    EXPECT_EQ(StepsLike("flush"), 1u);
}

TEST_F(RestoreCopyTest, TheTableComesFirstAndTheFlushLast)
{
    SHOWS(KkRestorePartitions, KK_STATUS_SUCCESS,
          "the table is written and flushed before the data, which is flushed last");

    ASSERT_EQ(RestorePartitions({}, 1), 0);

    const uint64_t last = kSize - 512;
    EXPECT_THAT(Steps(), ElementsAre("open image", "read image", "open drive 0 for writing", "size of drive 0",
                                     WriteAt(0, 512), WriteAt(512, 512), WriteAt(1024, 16384),
                                     WriteAt(last - 16384, 16384), WriteAt(last, 512), "flush drive 0", "read image",
                                     WriteAt(kStart, kTransfer), "read image", WriteAt(kStart + kTransfer, kTransfer),
                                     "read image", WriteAt(kStart + 2 * kTransfer, 4 * kMiB + 512), "flush drive 0",
                                     "close drive 0", "close image"));
}

TEST_F(RestoreCopyTest, WithoutATableThereIsOneFlush)
{
    SHOWS(KkRestorePartitions, KK_STATUS_SUCCESS, "without a new table there is one flush");

    MakeImage(kSmallGpt, {{kStart, kMiB}, {4 * kMiB, kMiB}}, kSize);

    ASSERT_EQ(RestorePartitions(), 0);

    EXPECT_THAT(Steps(), ElementsAre("open image", "read image", "open drive 0 for writing", "size of drive 0",
                                     "read image", WriteAt(kStart, kMiB), "read image", WriteAt(4 * kMiB, kMiB),
                                     "flush drive 0", "close drive 0", "close image"));
}

TEST_F(RestoreCopyTest, NothingIsLockedOrRefreshed)
{
    SHOWS(KkRestorePartitions, KK_STATUS_SUCCESS, "nothing is locked, dismounted or told of the change");

    ASSERT_EQ(RestorePartitions({}, 1), 0);

    for (const uint32_t code : {0x90018u, 0x90020u, 0x9001Cu, 0x70140u}) {
        EXPECT_EQ(machine.journal.Count({.code = code}), 0u) << std::hex << code;
    }
}

TEST_F(RestoreCopyTest, TheImageIsOpenedOnceAndOnlyForReading)
{
    SHOWS(KkRestorePartitions, KK_STATUS_SUCCESS, "the image is opened once, and only for reading");

    ASSERT_EQ(RestorePartitions({}, 1), 0);

    const std::vector<machine::CallRecord> opens =
        machine.journal.FindAll({.kind = CallKind::CreateFile, .object = ".vhdx"});
    ASSERT_EQ(opens.size(), 1u);
    EXPECT_EQ(opens[0].access & machine::kFileWriteData, 0u);
}

TEST_F(RestoreCopyTest, ATargetThatDoesNotOpenEndsTheCall)
{
    SHOWS(KkRestorePartitions, 0xC0000022, "the status of a target that does not open is passed on");
    SHOWS(KkRestorePartitions, 0xC0000034, "the status of a target that is not there is passed on");

    Fail({.kind = CallKind::CreateFile, .object = "PhysicalDrive0"}, 0xC0000022);
    EXPECT_EQ(RestorePartitions({}, 1), Status(0xC0000022));

    machine.faults.Clear();
    EXPECT_EQ(RestorePartitions({}, 1, u"\\\\.\\PhysicalDrive5"), machine::kObjectNameNotFound);
}

TEST_F(RestoreCopyTest, AReadThatFailsEndsTheCopyWhereItIs)
{
    SHOWS(KkRestorePartitions, 0xC0000185, "a failing read of the image ends the copy where it is");

    PutInImage(kStart + kTransfer, Pattern(kTransfer, 9));
    ASSERT_EQ(RestorePartitions(), 0);
    const uint64_t reads = machine.journal.Count({.kind = CallKind::ReadFile, .object = ".vhdx"});
    AddTarget(kSize);
    // Two reads for each chunk: the second one's data.
    machine.faults.Fail({.kind = CallKind::ReadFile, .object = ".vhdx"}, reads - 2, 0xC0000185);

    EXPECT_EQ(RestorePartitions(), Status(0xC0000185));

    EXPECT_THAT(written, ElementsAre(Place{kStart, kTransfer}));
    EXPECT_EQ(StepsLike("flush"), 0u);
}

TEST_F(RestoreCopyTest, AWriteThatFailsEndsTheCopyWhereItIs)
{
    SHOWS(KkRestorePartitions, 0xC0000185, "a failing write ends the copy where it is");

    machine.faults.Fail({.kind = CallKind::WriteFile}, 2, 0xC0000185);

    EXPECT_EQ(RestorePartitions(), Status(0xC0000185));

    EXPECT_THAT(written, ElementsAre(Place{kStart, kTransfer}));
    EXPECT_EQ(StepsLike("flush"), 0u);
    ExpectOld(kStart + kTransfer, kTransfer);
}

TEST_F(RestoreCopyTest, AWriteThatMakesNoProgressFails)
{
    SHOWS(KkRestorePartitions, KK_STATUS_UNSUCCESSFUL, "a write makes no progress");

    machine.faults.Shorten({.kind = CallKind::WriteFile}, 1, 0);

    EXPECT_EQ(RestorePartitions(), KK_STATUS_UNSUCCESSFUL);
}

TEST_F(RestoreCopyTest, AWriteThatIsCutShortGoesOn)
{
    SHOWS(KkRestorePartitions, KK_STATUS_SUCCESS, "a write that is cut short is gone on with");

    machine.faults.Shorten({.kind = CallKind::WriteFile}, 1, 4096);

    EXPECT_EQ(RestorePartitions(), 0);

    ExpectRestored(kStart, kStart, kLength);
}

TEST_F(RestoreCopyTest, EachWriteOfTheTableMayFailAndThenNoDataFollows)
{
    SHOWS(KkRestorePartitions, 0xC0000185, "a failing write of the table is followed by no data");

    for (uint64_t nth = 1; nth <= 5; ++nth) {
        AddTarget(kSize);
        machine.faults.Clear();
        machine.faults.Fail({.kind = CallKind::WriteFile}, nth, 0xC0000185);

        EXPECT_EQ(RestorePartitions({}, 1), Status(0xC0000185)) << nth;

        EXPECT_EQ(written.size(), nth - 1);
        ExpectOld(kStart, kLength);
        EXPECT_EQ(StepsLike("flush"), 0u);
    }
}

TEST_F(RestoreCopyTest, AFlushThatFailsChangesNothing)
{
    SHOWS(KkRestorePartitions, KK_STATUS_SUCCESS, "a flush that fails does not matter");

    Fail({.kind = CallKind::Flush}, 0xC0000185);

    EXPECT_EQ(RestorePartitions({}, 1), 0);

    ExpectRestored(kStart, kStart, kLength);
}

TEST_F(RestoreCopyTest, WithoutMemoryForTheBufferTheNewTableStays)
{
    SHOWS(KkRestorePartitions, KK_STATUS_NO_MEMORY, "no memory for the buffer; the new table stays");

    machine.heap.SetLimit(4 * kMiB);

    EXPECT_EQ(RestorePartitions({}, 1), KK_STATUS_NO_MEMORY);

    EXPECT_EQ(written.size(), 5u);
    EXPECT_EQ(StepsLike("flush"), 1u) << "the table's own";
    ExpectOld(kStart, kLength);
}

TEST_F(RestoreCopyTest, WithoutMemoryForTheTableNothingIsWritten)
{
    SHOWS(KkRestorePartitions, KK_STATUS_UNSUCCESSFUL, "no memory for the new table; nothing is written");

    ASSERT_EQ(RestorePartitions({}, 1), 0);
    const std::vector<uint64_t> sizes = machine.heap.Sizes();
    // The image's own entries take as much, earlier.
    const auto later = std::distance(sizes.rbegin(), std::ranges::find(sizes.rbegin(), sizes.rend(), 16384));
    AddTarget(kSize);
    machine.faults.Fail({.kind = CallKind::Allocate}, sizes.size() - static_cast<size_t>(later), 0);

    EXPECT_EQ(RestorePartitions({}, 1), KK_STATUS_UNSUCCESSFUL) << "as the writer of tables has it";

    EXPECT_THAT(written, IsEmpty());
}

TEST_F(RestoreCopyTest, AnImageThatIsCutOffFailsAtTheChunkThatIsMissing)
{
    SHOWS(KkRestorePartitions, KK_STATUS_END_OF_FILE, "the image ends where data should be; what precedes is written");

    BeginCall();
    const std::filesystem::path file = folder / "image.vhdx";
    // The only block is the file's last 256 MiB.
    const uint64_t blockStart = std::filesystem::file_size(file) - 256 * kMiB;
    std::filesystem::resize_file(file, blockStart + kStart + kTransfer + 4096);

    EXPECT_EQ(RestorePartitions(), KK_STATUS_END_OF_FILE);

    EXPECT_THAT(written, ElementsAre(Place{kStart, kTransfer}));
}

TEST_F(RestoreCopyTest, AFileThatIsNoImageIsRefusedBeforeTheTargetIsOpened)
{
    SHOWS(KkRestorePartitions, KK_STATUS_REGISTRY_CORRUPT, "the file is no VHDX; the target is not opened");

    BeginCall();
    Shell("head -c 4096 /dev/zero > '" + (folder / "image.vhdx").string() + "'");

    EXPECT_EQ(RestorePartitions({}, 1), KK_STATUS_REGISTRY_CORRUPT);

    EXPECT_THAT(Steps(), Not(Contains(testing::HasSubstr("drive"))));
}

TEST_F(RestoreCopyTest, ASystemThatProtectsMountedSectorsRefusesThemOnALiveDisk)
{
    SHOWS(KkRestorePartitions, 0xC0000022,
          "a system that protects sectors of mounted volumes refuses the write; nothing changes");

    machine.Strict();
    AddTarget(kSmallGpt, {{kStart, 16 * kMiB}}, kSize).Format(kStart, 16 * kMiB, machine::FileSystem::Fat16);
    const DiskBytes before(Target());
    MakeImage(kSmallGpt, {{kStart, kMiB}}, kSize);

    EXPECT_EQ(RestorePartitions(), machine::kAccessDenied);

    before.ExpectUnchanged();
}

}  // namespace
