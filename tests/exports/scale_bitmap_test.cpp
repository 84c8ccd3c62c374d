#include <algorithm>
#include <cstring>

#include "backup/volume_bitmap.h"
#include "disk/volume_controls.h"
#include "exports/support/backup_test.h"
#include "exports/support/giant_disk.h"

// A backup of the clusters in use of volumes whose bitmap takes up to a thousand requests.

namespace {

using machine::CallKind;
using Range = machine::RangeList::Range;

constexpr uint64_t kClusterBytes = 4096;
constexpr uint64_t kAnswerBytes = 1048584;
constexpr uint64_t kAnswerBits = kAnswerBytes * 8;

/// Runs of a few clusters across every border between two answers.
class BorderRuns {
public:
    explicit BorderRuns(uint64_t clusters) : clusters_(clusters) {}

    uint64_t Count() const { return (clusters_ - 1) / kAnswerBits; }
    /// The first cluster of the run at the border after answer `index`, and how many there are.
    static uint64_t First(uint64_t index) { return (index + 1) * kAnswerBits - kBefore; }
    static uint64_t Length() { return kBefore + kAfter; }

    machine::ControlAnswer Bitmap(const machine::ControlRequest& request) const
    {
        kk::StartingLcnInput input = {};
        std::memcpy(&input, request.input.data(), sizeof(input));
        const auto start = static_cast<uint64_t>(input.startingLcn);
        const uint64_t left = clusters_ - start;
        const uint64_t bits = std::min(left, kAnswerBits);
        machine::ControlAnswer answer;
        answer.status = bits < left ? machine::kBufferOverflow : machine::kSuccess;
        answer.output =
            machine::BytesOf(kk::VolumeBitmapHeader{static_cast<int64_t>(start), static_cast<int64_t>(left)});
        answer.output.resize(sizeof(kk::VolumeBitmapHeader) + (bits + 7) / 8);
        if (start != 0) {
            answer.output[sizeof(kk::VolumeBitmapHeader)] = (1u << kAfter) - 1;
        }
        if (bits < left) {
            answer.output.back() = static_cast<uint8_t>(0xFF << (8 - kBefore));
        }
        return answer;
    }

    machine::ControlAnswer VolumeData() const
    {
        kk::NtfsVolumeData data = {};
        data.numberSectors = static_cast<int64_t>(clusters_ * kClusterBytes / kGiantSector);
        data.totalClusters = static_cast<int64_t>(clusters_);
        data.bytesPerSector = kGiantSector;
        data.bytesPerCluster = kClusterBytes;
        return {.output = machine::BytesOf(data)};
    }

private:
    static constexpr uint64_t kBefore = 3;
    static constexpr uint64_t kAfter = 2;

    uint64_t clusters_;
};

class ScaleBitmapTest : public BackupTest {
protected:
    static constexpr uint64_t kStart = kMiB;

    /// Disk 0 with one volume of so many clusters, those at the borders in use.
    void AddVolume(uint64_t clusters)
    {
        const BorderRuns runs(clusters);
        disk = &machine.AddDisk(kGiantDisk, {.sectorSize = kGiantSector, .number = 0});
        disk->Gpt({.partitions = {{.start = kStart, .length = clusters * kClusterBytes}}});
        machine::Volume& volume = *machine.FindVolume(0, kStart);
        volume.SetFileSystemName(u"NTFS");
        volume.SetNtfsData([runs](const machine::ControlRequest&) { return runs.VolumeData(); });
        volume.SetBitmapAnswer([runs](const machine::ControlRequest& request) { return runs.Bitmap(request); });
        // Without the list of clusters all of the partition would be read, which would take hours.
        machine.faults.FailFrom({.kind = CallKind::ReadFile, .object = "PhysicalDrive0"}, 1, 0xC0000185);
        images->Remove(ImagePath());
        machine.journal.Clear();
        machine.heap.ResetCounters();
    }

    size_t BitmapRequests() const { return machine.journal.Count({.code = kk::kFsctlGetVolumeBitmap}); }
    size_t VolumeReads() const
    {
        return machine.journal.Count({.kind = CallKind::ReadFile, .object = "HarddiskVolume"});
    }
    /// What the image was written at behind its table.
    std::vector<Range> DataWritten() const
    {
        std::vector<Range> ranges = Image()->Written().Within(kStart, kGiantDisk - 2 * kStart);
        return ranges;
    }

    machine::Disk* disk = nullptr;
};

TEST_F(ScaleBitmapTest, RunsAcrossEveryBorderOfABitmapOf2To33ClustersAreCopiedWhole)
{
    SHOWS(KkBackup, KK_STATUS_SUCCESS,
          "of a volume of 2^33 clusters, runs across every border between two bitmap "
          "answers are copied whole, in the memory of one buffer");

    const BorderRuns runs(uint64_t{1} << 33);
    AddVolume(uint64_t{1} << 33);
    const uint64_t marked[] = {0, 1, runs.Count() / 2, runs.Count() - 1};
    for (const uint64_t index : marked) {
        FillPattern(*disk, kStart + BorderRuns::First(index) * kClusterBytes, BorderRuns::Length() * kClusterBytes,
                    static_cast<uint8_t>(index));
    }

    ASSERT_EQ(Backup({.usedBlocksOnly = 1}), 0);

    ASSERT_EQ(runs.Count(), 1023u);
    EXPECT_EQ(result.liveUsedBlockCopies, 1u);
    EXPECT_EQ(result.bytesCopied, runs.Count() * BorderRuns::Length() * kClusterBytes);
    EXPECT_EQ(BitmapRequests(), runs.Count() + 1);
    EXPECT_EQ(VolumeReads(), runs.Count()) << "a run that two answers tell of is one";
    std::vector<Range> expected;
    for (uint64_t i = 0; i < runs.Count(); ++i) {
        const uint64_t start = kStart + BorderRuns::First(i) * kClusterBytes;
        expected.push_back({start, start + BorderRuns::Length() * kClusterBytes});
    }
    EXPECT_TRUE(DataWritten() == expected);
    for (const uint64_t index : marked) {
        const uint64_t start = kStart + BorderRuns::First(index) * kClusterBytes;
        ExpectSameBytes(*disk, start, start, BorderRuns::Length() * kClusterBytes);
    }
    EXPECT_LE(machine.heap.PeakBytes(), kCopyBufferBytes + kAnswerBytes + kListsBytes);
}

TEST_F(ScaleBitmapTest, CallsGrowWithTheClustersAndMemoryStays)
{
    SHOWS(KkBackup, KK_STATUS_SUCCESS, "calls grow in proportion to the clusters, and memory does not grow");
    SHOWS(KkBackup, KK_STATUS_SUCCESS, "twice as many runs of clusters need one allocation more");

    std::vector<size_t> calls;
    std::vector<uint64_t> peaks;
    std::vector<uint64_t> allocations;
    for (const unsigned power : {29u, 30u, 31u}) {
        AddVolume(uint64_t{1} << power);
        ASSERT_EQ(Backup({.usedBlocksOnly = 1}), 0);
        calls.push_back(machine.journal.Records().size());
        peaks.push_back(machine.heap.PeakBytes());
        allocations.push_back(machine.heap.TotalAllocations());
        machine.RemoveDisk(0);
    }
    for (size_t i = 1; i < calls.size(); ++i) {
        EXPECT_LE(calls[i], 2 * calls[i - 1]);
        EXPECT_LE(peaks[i], peaks[i - 1] + kListsBytes);
        EXPECT_LE(allocations[i], allocations[i - 1] + 1) << "the list of runs doubles";
    }
    EXPECT_LE(peaks.back(), kCopyBufferBytes + kAnswerBytes + kListsBytes);
}

}  // namespace
