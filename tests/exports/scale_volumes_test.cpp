#include "exports/support/giant_disk.h"
#include "exports/support/list_partitions_test.h"
#include "machine/text.h"

// As many volumes as are looked at, and a mount manager that has a great deal to tell.

namespace {

using machine::CallKind;

class ScaleVolumesTest : public ListPartitionsTest {
protected:
    static constexpr uint32_t kVolumes = 127;
    static constexpr uint32_t kQueryPoints = 0x6D0008;

    void AddDiskWith(uint32_t partitions)
    {
        machine::GptTable table;
        for (uint32_t i = 0; i < partitions; ++i) {
            table.partitions.push_back({.start = (i + 1) * kMiB, .length = kMiB});
        }
        machine.AddDisk(kGiantDisk, {.sectorSize = kGiantSector, .number = 0}).Gpt(table);
    }

    /// So many links that nobody asks for, about a hundred bytes each.
    void AddLinks(uint32_t count)
    {
        for (uint32_t i = 0; i < count; ++i) {
            machine.mountManager->AddMountPoint(u"\\DosDevices\\C:\\a folder of some depth\\" +
                                                    machine::Utf16(std::to_string(i)),
                                                u"\\Device\\HarddiskVolume1");
        }
    }

    size_t Opens(const std::string& object) const
    {
        return machine.journal.Count({.kind = CallKind::CreateFile, .object = object});
    }
    size_t Queries() const { return machine.journal.Count({.code = kQueryPoints}); }
    std::vector<KkPartitionInfo> ListAnew()
    {
        machine.journal.Clear();
        machine.heap.ResetCounters();
        return List(0, 128);
    }
};

TEST_F(ScaleVolumesTest, A127VolumesAreFoundAndThe128thIsNotLookedAt)
{
    SHOWS(KkListPartitions, KK_STATUS_SUCCESS,
          "127 volumes are found, and a volume with a higher number is not looked "
          "at");

    AddDiskWith(kVolumes + 1);

    const std::vector<KkPartitionInfo> records = ListAnew();

    ASSERT_EQ(status, 0);
    ASSERT_EQ(records.size(), kVolumes + 1);
    for (uint32_t i = 0; i < kVolumes; ++i) {
        EXPECT_EQ(TEXT_OF(records[i], deviceName), u"\\Device\\HarddiskVolume" + machine::Utf16(std::to_string(i + 1)));
        EXPECT_FALSE(TEXT_OF(records[i], volumePath).empty()) << i;
    }
    EXPECT_TRUE(TEXT_OF(records[kVolumes], deviceName).empty());
    EXPECT_TRUE(TEXT_OF(records[kVolumes], volumePath).empty());
    EXPECT_EQ(Opens("HarddiskVolume127"), 2u + 2u) << "in search of the last two partitions; its size; its file system";
    EXPECT_EQ(Opens("HarddiskVolume128"), 0u);
}

TEST_F(ScaleVolumesTest, APartitionCostsAtMost127SearchedVolumesAndTwoQueries)
{
    SHOWS(KkListPartitions, KK_STATUS_SUCCESS, "calls grow in proportion to the partitions times the volumes");

    for (const uint32_t partitions : {32u, 64u, 128u}) {
        AddDiskWith(partitions);
        ASSERT_EQ(ListAnew().size(), partitions);

        EXPECT_LE(Opens("HarddiskVolume"), size_t{partitions} * (kVolumes + 2));
        // Each query is made again when the first answer did not fit.
        EXPECT_LE(Queries(), size_t{partitions} * 2 * 2);
        EXPECT_LE(machine.heap.PeakBytes(), kListsBytes);
        machine.RemoveDisk(0);
    }
}

TEST_F(ScaleVolumesTest, AMountManagerThatTellsSeveralHundredKiBIsUnderstood)
{
    SHOWS(KkListPartitions, KK_STATUS_SUCCESS,
          "letters and paths are found in a mount-manager table of several "
          "hundred KiB");

    constexpr uint32_t kLinks = 2000;
    AddDiskWith(2);
    AddLinks(kLinks);
    machine.AssignLetter(*machine.FindVolume(0, 2 * kMiB), u'Q');
    const uint64_t tableBytes = machine::MountManager::Encode(machine.mountManager->Points()).size();
    ASSERT_GT(tableBytes, 300 * kKiB);

    const std::vector<KkPartitionInfo> records = ListAnew();

    ASSERT_EQ(records.size(), 2u);
    EXPECT_EQ(TEXT_OF(records[1], driveLetter), u"Q:");
    EXPECT_EQ(TEXT_OF(records[1], volumePath), machine.FindVolume(0, 2 * kMiB)->Path());
    EXPECT_EQ(TEXT_OF(records[0], volumePath), machine.FindVolume(0, kMiB)->Path());
    // A query with the first room, another with enough, for each of two texts of two partitions.
    EXPECT_EQ(Queries(), 8u);
    EXPECT_LE(machine.heap.PeakBytes(), tableBytes + 64 * kKiB);
}

TEST_F(ScaleVolumesTest, MemoryFollowsTheMountManagersTableAndCallsDoNot)
{
    SHOWS(KkListPartitions, KK_STATUS_SUCCESS,
          "memory grows in proportion to the mount manager's table, and calls do "
          "not");

    AddDiskWith(1);
    std::vector<size_t> calls;
    std::vector<uint64_t> peaks;
    for (int step = 0; step < 3; ++step) {
        AddLinks(step == 2 ? 2000 : 1000);  // 1000, 2000, 4000 in all
        ASSERT_EQ(ListAnew().size(), 1u);
        calls.push_back(machine.journal.Records().size());
        peaks.push_back(machine.heap.PeakBytes());
    }
    EXPECT_EQ(calls[1], calls[0]);
    EXPECT_EQ(calls[2], calls[0]);
    for (size_t i = 1; i < peaks.size(); ++i) {
        EXPECT_LE(peaks[i], peaks[i - 1] * 21 / 10);
    }
}

}  // namespace
