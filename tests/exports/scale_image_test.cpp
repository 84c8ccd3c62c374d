#include "exports/support/giant_disk.h"
#include "exports/support/restore_test.h"
#include "support/vhdx_builder.h"

// A sparse image of the largest disk that the format knows.

namespace {

using machine::CallKind;

class ScaleImageTest : public RestoreTest {
protected:
    static constexpr uint64_t kFarStart = kGiantDisk - 8 * kGiB;
    static constexpr size_t kMarkBytes = 3 * kMiB + kGiantSector;

    /// The image has a partition at the beginning and one near the end, which both begin and end with a mark.
    void MakeGiantImage(uint64_t farLength, uint32_t blockSize = 2 << 20)
    {
        machine::MemoryStorage bytes(kGiantDisk);
        machine::WriteGptTable(bytes, kGiantSector,
                               {.partitions = {{.start = kMiB, .length = kGiantDisk / 2, .name = u"First"},
                                               {.start = kFarStart, .length = farLength, .name = u"Far"}}});
        EXPECT_TRUE(bytes.Write(kFarStart, Pattern(kMarkBytes, 1)));
        EXPECT_TRUE(bytes.Write(kFarStart + farLength - kMarkBytes, Pattern(kMarkBytes, 2)));
        VhdxBuilder(kGiantDisk).SectorSize(kGiantSector).BlockSize(blockSize).Data(bytes).Save(folder / "giant.vhdx");
    }
    std::u16string GiantPath() const { return WindowsPath(folder / "giant.vhdx"); }

    machine::Disk& AddGiantTarget()
    {
        if (machine.FindDisk(0) != nullptr) {
            machine.RemoveDisk(0);
        }
        return machine.AddDisk(kGiantDisk, {.sectorSize = kGiantSector, .number = 0}).Gpt({});
    }

    void ExpectMarks(uint64_t start, uint64_t length) const
    {
        EXPECT_TRUE(Target().ReadBytes(start, kMarkBytes) == Pattern(kMarkBytes, 1));
        EXPECT_TRUE(Target().ReadBytes(start + length - kMarkBytes, kMarkBytes) == Pattern(kMarkBytes, 2));
    }
};

TEST_F(ScaleImageTest, AnImageOf64TiBIsInspectedWithoutReadingItsBlockTable)
{
    SHOWS(KkInspectImage, KK_STATUS_SUCCESS, "an image of 64 TiB is inspected in a few reads and little memory");

    MakeGiantImage(kGiB);
    ImageInfoRecord info = {};
    ImagePartitionRecord partitions[4] = {};
    uint32_t count = 0;
    machine.heap.ResetCounters();

    ASSERT_EQ(api.inspectImage(GiantPath().c_str(), &info, partitions, 4, &count), 0);

    EXPECT_EQ(uint64_t{info.virtualSize}, kGiantDisk);
    EXPECT_EQ(uint32_t{info.logicalSectorSize}, kGiantSector);
    ASSERT_EQ(count, 2u);
    EXPECT_EQ(uint64_t{partitions[0].length}, kGiantDisk / 2);
    EXPECT_EQ(uint64_t{partitions[1].offset}, kFarStart);
    EXPECT_EQ(uint64_t{partitions[1].length}, kGiB);
    EXPECT_LT(machine.journal.Count({.kind = CallKind::ReadFile}), 32u);
    constexpr uint64_t metadataRegion = kMiB;  // read as a whole
    EXPECT_LE(machine.heap.PeakBytes(), metadataRegion + kListsBytes);
}

TEST_F(ScaleImageTest, AFarPartitionIsRestoredToTheEndOfADiskOf64TiB)
{
    SHOWS(KkRestoreToFreeSpace, KK_STATUS_SUCCESS,
          "a partition near the end of an image of 64 TiB is restored to the "
          "end of a disk of 64 TiB");

    constexpr uint64_t length = 256 * kMiB;
    const uint64_t start = kGiantDisk - kGiB;
    MakeGiantImage(length);
    AddGiantTarget();
    machine.heap.ResetCounters();

    ASSERT_EQ(api.restoreToFreeSpace(GiantPath().c_str(), 2, 0, start, kGiB, 1), 0);

    ExpectMarks(start, length);
    EXPECT_LE(machine.heap.PeakBytes(), kCopyBufferBytes + kListsBytes);
}

TEST_F(ScaleImageTest, ANewTableOf64TiBIsWrittenAndThePartitionRestoredInPlace)
{
    SHOWS(KkRestorePartitions, KK_STATUS_SUCCESS,
          "a partition near the end of an image of 64 TiB is restored in "
          "place, with a new table");

    constexpr uint64_t length = 64 * kMiB;
    MakeGiantImage(length);
    AddGiantTarget();
    const uint32_t number = 2;

    ASSERT_EQ(api.restorePartitions(GiantPath().c_str(), u"\\\\.\\PhysicalDrive0", &number, 1, 1), 0);

    ExpectMarks(kFarStart, length);
    Target().Rescan();
    EXPECT_THAT(DriverKnows(), testing::ElementsAre(Place{kFarStart, length}));
}

TEST_F(ScaleImageTest, ReadsGrowWithTheLengthAndMemoryStays)
{
    SHOWS(KkRestoreToFreeSpace, KK_STATUS_SUCCESS,
          "reads grow in proportion to the partition's length, and memory "
          "does not grow");

    std::vector<size_t> reads;
    std::vector<uint64_t> peaks;
    for (const uint64_t length : {128 * kMiB, 256 * kMiB, 512 * kMiB}) {
        MakeGiantImage(length, 32 << 20);
        AddGiantTarget();
        machine.journal.Clear();
        machine.heap.ResetCounters();
        ASSERT_EQ(api.restoreToFreeSpace(GiantPath().c_str(), 2, 0, kGiantDisk - kGiB, kGiB, 1), 0);
        reads.push_back(machine.journal.Count({.kind = CallKind::ReadFile, .object = "giant.vhdx"}));
        peaks.push_back(machine.heap.PeakBytes());
    }
    for (size_t i = 1; i < reads.size(); ++i) {
        EXPECT_LE(reads[i], 2 * reads[i - 1]);
        EXPECT_GT(reads[i], reads[i - 1]);
        EXPECT_EQ(peaks[i], peaks[0]);
    }
}

}  // namespace
