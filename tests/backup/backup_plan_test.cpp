#include "backup/backup_plan.h"

#include <vector>

#include "disk/volume_controls.h"
#include "support/machine_test.h"

namespace {

class BackupPlanTest : public MachineTest {
protected:
    BackupPlanTest() { layout.style = kk::PartitionStyle::Gpt; }

    void AddPartition(uint32_t number, uint64_t start, uint64_t length)
    {
        kk::PartitionEntry partition = {};
        partition.number = number;
        partition.start = start;
        partition.length = length;
        ASSERT_TRUE(layout.partitions.Append(partition));
    }

    /// A disk of the machine with these partitions, 1 MiB each at every other MiB, and the layout that says so.
    void AddDisk(uint64_t partitions)
    {
        std::vector<machine::GptPartition> table;
        for (uint64_t i = 0; i < partitions; ++i) {
            table.push_back({.start = (1 + 2 * i) * kMiB, .length = kMiB});
            AddPartition(static_cast<uint32_t>(i + 1), (1 + 2 * i) * kMiB, kMiB);
        }
        machine.AddDisk((2 * partitions + 4) * kMiB).Gpt({.partitions = table});
    }

    machine::Volume& VolumeOf(size_t index) { return *machine.FindVolume(0, layout.partitions[index].start); }

    /// The volume answers as NTFS with clusters of this size.
    void MakeNtfs(machine::Volume& volume, uint32_t clusterSize)
    {
        volume.SetNtfsData([clusterSize](const machine::ControlRequest&) {
            kk::NtfsVolumeData data = {};
            data.bytesPerSector = 512;
            data.bytesPerCluster = clusterSize;
            return machine::ControlAnswer{machine::kSuccess, machine::BytesOf(data)};
        });
    }

    KK_STATUS Build() { return kk::BuildBackupPlan(request, layout, plan); }

    void Choose(std::vector<uint32_t> numbers)
    {
        chosen = std::move(numbers);
        request.partitionNumbers = chosen.data();
        request.partitionCount = static_cast<uint32_t>(chosen.size());
    }

    std::vector<uint32_t> PlannedNumbers() const
    {
        std::vector<uint32_t> numbers;
        for (const kk::BackupPlanEntry& entry : plan) {
            numbers.push_back(entry.partition->number);
        }
        return numbers;
    }

    std::vector<uint32_t> chosen;
    kk::BackupRequest request = {};
    kk::DiskLayout layout;
    kk::BackupPlan plan;
};

TEST_F(BackupPlanTest, WithoutASelectionEveryPartitionIsPlannedInLayoutOrder)
{
    AddPartition(5, 9 * kMiB, kMiB);
    AddPartition(2, kMiB, kMiB);
    AddPartition(7, 4 * kMiB, kMiB);

    EXPECT_EQ(Build(), 0);
    EXPECT_EQ(PlannedNumbers(), (std::vector<uint32_t>{5, 2, 7}));
    EXPECT_EQ(plan[1].partition, &layout.partitions[1]);
}

TEST_F(BackupPlanTest, ChosenPartitionsArePlannedInLayoutOrder)
{
    AddPartition(5, 9 * kMiB, kMiB);
    AddPartition(2, kMiB, kMiB);
    AddPartition(7, 4 * kMiB, kMiB);
    Choose({7, 99, 5, 7});

    EXPECT_EQ(Build(), 0);
    EXPECT_EQ(PlannedNumbers(), (std::vector<uint32_t>{5, 7}));
}

TEST_F(BackupPlanTest, OnlyAsManyNumbersAsCountedChoose)
{
    AddPartition(1, kMiB, kMiB);
    AddPartition(2, 4 * kMiB, kMiB);
    Choose({2, 1});
    request.partitionCount = 1;

    EXPECT_EQ(Build(), 0);
    EXPECT_EQ(PlannedNumbers(), std::vector<uint32_t>{2});
}

TEST_F(BackupPlanTest, NumbersAreNotPositions)
{
    AddPartition(0, kMiB, kMiB);
    AddPartition(0x80000001, 4 * kMiB, kMiB);
    Choose({0x80000001});

    EXPECT_EQ(Build(), 0);
    EXPECT_EQ(PlannedNumbers(), std::vector<uint32_t>{0x80000001});
}

TEST_F(BackupPlanTest, ASelectionOfNothingIsAnEmptyPlan)
{
    AddPartition(1, kMiB, kMiB);
    Choose({2});

    EXPECT_EQ(Build(), 0);
    EXPECT_EQ(plan.Count(), 0u);
}

TEST_F(BackupPlanTest, APartitionWithoutAVolumeHasNothingButItself)
{
    AddPartition(1, kMiB, kMiB);
    request.usedBlocksOnly = true;
    request.useSnapshots = 1;

    EXPECT_EQ(Build(), 0);
    EXPECT_EQ(plan[0].volumeDevice[0], 0);
    EXPECT_EQ(plan[0].snapshotVolumeName[0], 0);
    EXPECT_EQ(plan[0].clusterSize, 0u);
    EXPECT_FALSE(plan[0].usedBlocks);
    EXPECT_EQ(plan[0].imageOffset, 0u);
}

TEST_F(BackupPlanTest, AVolumeIsFoundByDiskAndStart)
{
    AddDisk(2);
    machine.AddDisk(8 * kMiB).Gpt({.partitions = {{.start = kMiB, .length = kMiB}}});
    MakeNtfs(VolumeOf(1), 4096);

    EXPECT_EQ(Build(), 0);
    EXPECT_EQ(std::u16string(plan[0].volumeDevice), VolumeOf(0).DeviceName());
    EXPECT_EQ(plan[0].clusterSize, 0u);
    EXPECT_EQ(std::u16string(plan[1].volumeDevice), VolumeOf(1).DeviceName());
    EXPECT_EQ(plan[1].clusterSize, 4096u);

    kk::BackupPlan other;
    request.diskNumber = 1;
    EXPECT_EQ(kk::BuildBackupPlan(request, layout, other), 0);
    EXPECT_EQ(std::u16string(other[0].volumeDevice), machine.FindVolume(1, kMiB)->DeviceName());
    EXPECT_EQ(other[1].volumeDevice[0], 0);
}

TEST_F(BackupPlanTest, OnlyNtfsVolumesAreCopiedByUsedBlocks)
{
    AddDisk(2);
    MakeNtfs(VolumeOf(1), 65536);
    request.usedBlocksOnly = true;

    EXPECT_EQ(Build(), 0);
    EXPECT_FALSE(plan[0].usedBlocks);
    EXPECT_TRUE(plan[1].usedBlocks);
}

TEST_F(BackupPlanTest, UsedBlocksAreCopiedOnlyOnDemand)
{
    AddDisk(1);
    MakeNtfs(VolumeOf(0), 4096);

    EXPECT_EQ(Build(), 0);
    EXPECT_FALSE(plan[0].usedBlocks);
    EXPECT_EQ(plan[0].clusterSize, 4096u);
}

TEST_F(BackupPlanTest, ARealNtfsVolumeTellsItsClusterSize)
{
    machine.AddDisk(32 * kMiB)
        .Gpt({.partitions = {{.start = kMiB, .length = 16 * kMiB}}})
        .Format(kMiB, 16 * kMiB, machine::FileSystem::Ntfs, {.clusterSize = 2048});
    AddPartition(1, kMiB, 16 * kMiB);
    request.usedBlocksOnly = true;

    EXPECT_EQ(Build(), 0);
    EXPECT_EQ(plan[0].clusterSize, 2048u);
    EXPECT_TRUE(plan[0].usedBlocks);
}

TEST_F(BackupPlanTest, NamesForSnapshotsAreFetchedWhenWanted)
{
    AddDisk(2);
    AddPartition(9, 7 * kMiB, kMiB);
    for (const uint32_t flag : {1u, 0x100u, 0x80000000u}) {
        kk::BackupPlan wanted;
        request.useSnapshots = flag;

        EXPECT_EQ(kk::BuildBackupPlan(request, layout, wanted), 0);
        EXPECT_EQ(std::u16string(wanted[0].snapshotVolumeName), VolumeOf(0).Path());
        EXPECT_EQ(std::u16string(wanted[1].snapshotVolumeName), VolumeOf(1).Path());
        EXPECT_EQ(wanted[2].snapshotVolumeName[0], 0);
    }
}

TEST_F(BackupPlanTest, WithoutSnapshotsTheMountManagerIsNotAsked)
{
    AddDisk(2);

    EXPECT_EQ(Build(), 0);
    EXPECT_EQ(plan[0].snapshotVolumeName[0], 0);
    EXPECT_EQ(machine.journal.Count({.object = "MountPointManager"}), 0u);
}

TEST_F(BackupPlanTest, AMountManagerThatFailsLeavesTheNameEmpty)
{
    AddDisk(1);
    request.useSnapshots = 1;
    machine.faults.Fail({.code = 0x6D0008}, 1, 0xC0000010);

    EXPECT_EQ(Build(), 0);
    EXPECT_EQ(plan[0].snapshotVolumeName[0], 0);
    EXPECT_NE(plan[0].volumeDevice[0], 0);
}

TEST_F(BackupPlanTest, APlanThatCannotGrowIsAFailure)
{
    for (uint32_t i = 0; i < 9; ++i) {
        AddPartition(i, (1 + i) * kMiB, kMiB);
    }
    for (const uint64_t nth : {1u, 2u}) {
        machine.faults.Clear();
        machine.faults.Fail({.kind = machine::CallKind::Allocate}, nth, 0);
        kk::BackupPlan failing;

        EXPECT_EQ(kk::BuildBackupPlan(request, layout, failing), Status(0xC0000017));
    }
    EXPECT_EQ(machine.handles.OpenCount(), 0u);
}

}  // namespace
