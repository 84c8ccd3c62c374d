#include "disk/disk_controls.h"
#include "disk/volume_controls.h"
#include "exports/support/giant_disk.h"
#include "exports/support/partition_edit_test.h"

// Partition tables of the largest disks, and tables that are nearly full.

namespace {

using machine::CallKind;
using testing::ElementsAre;

class ScalePartitionsTest : public PartitionEditTest {
protected:
    static constexpr DiskKind kKind = {TableKind::Gpt, kGiantSector};
    static constexpr uint64_t kFirstLength = kGiantDisk / 2;
    static constexpr uint64_t kLastStart = kGiantDisk - 4 * kTiB;

    /// Disk 0 with partitions of 1 MiB in all slots but the last.
    void AddNearlyFullDisk(uint32_t slots)
    {
        machine::GptTable table;
        table.entryCount = slots;
        for (uint32_t i = 0; i + 1 < slots; ++i) {
            table.partitions.push_back({.start = (i + 1) * kMiB, .length = kMiB});
        }
        AddBareDisk(kGiantDisk, kGiantSector).Gpt(table);
    }

    uint32_t CountPartitions()
    {
        uint32_t count = 0;
        EXPECT_EQ(api.listPartitions(0, nullptr, 0, &count), 0);
        return count;
    }

    /// Calls of the machine and the heap's peak since BeginCall.
    struct Cost {
        size_t transfers;
        uint64_t peakBytes;
    };
    Cost CostSoFar() const
    {
        return {machine.journal.Count({.kind = CallKind::ReadFile}) +
                    machine.journal.Count({.kind = CallKind::WriteFile}),
                machine.heap.PeakBytes()};
    }
};

TEST_F(ScalePartitionsTest, PartitionsAtTheVeryEndOf64TiBAreListed)
{
    SHOWS(KkListDisks, KK_STATUS_SUCCESS, "a disk of 64 TiB with sectors of 4096 bytes is listed");
    SHOWS(KkListPartitions, KK_STATUS_SUCCESS, "partitions at the end of 64 TiB are listed");

    const uint64_t length = kGiantDisk - kLastStart - kMiB;
    AddDisk(kKind, {{kMiB, kFirstLength}, {kLastStart, length}}, kGiantDisk);

    KkDiskInfo disk = {};
    KkPartitionInfo partitions[4] = {};
    uint32_t count = 0;
    ASSERT_EQ(api.listDisks(&disk, 1, &count), 0);
    EXPECT_EQ(uint64_t{disk.size}, kGiantDisk);
    EXPECT_EQ(uint32_t{disk.sectorSize}, kGiantSector);
    ASSERT_EQ(api.listPartitions(0, partitions, 4, &count), 0);
    ASSERT_EQ(count, 2u);
    EXPECT_EQ(uint64_t{partitions[0].length}, kFirstLength);
    EXPECT_EQ(uint64_t{partitions[1].startOffset}, kLastStart);
    EXPECT_EQ(uint64_t{partitions[1].length}, length);
}

TEST_F(ScalePartitionsTest, TheEndOf64TiBIsCreatedShrunkExtendedAndDeleted)
{
    SHOWS(KkCreatePartition, KK_STATUS_SUCCESS, "a partition at the end of 64 TiB, sectors of 4096 bytes");
    SHOWS(KkShrinkPartition, KK_STATUS_SUCCESS, "a partition at the end of 64 TiB, sectors of 4096 bytes");
    SHOWS(KkExtendPartition, KK_STATUS_SUCCESS, "a partition at the end of 64 TiB, sectors of 4096 bytes");
    SHOWS(KkDeletePartition, KK_STATUS_SUCCESS, "a partition at the end of 64 TiB, sectors of 4096 bytes");

    AddDisk(kKind, {{kMiB, kFirstLength}}, kGiantDisk);
    // All the room: the last 34 sectors are the table's, and lengths are whole MiB.
    const uint64_t whole = kGiantDisk - kLastStart - kMiB;

    ASSERT_EQ(Create(kLastStart, kGiantDisk - kLastStart), 0);
    EXPECT_EQ(created, kLastStart);
    EXPECT_THAT(Partitions(), ElementsAre(Place{kMiB, kFirstLength}, Place{kLastStart, whole}));

    ASSERT_EQ(Shrink(kLastStart, kTiB), 0);
    EXPECT_THAT(Partitions(), ElementsAre(Place{kMiB, kFirstLength}, Place{kLastStart, kTiB}));

    ASSERT_EQ(Extend(kLastStart, whole), 0);
    EXPECT_THAT(Partitions(), ElementsAre(Place{kMiB, kFirstLength}, Place{kLastStart, whole}));

    ASSERT_EQ(Delete(kLastStart), 0);
    EXPECT_THAT(Partitions(), ElementsAre(Place{kMiB, kFirstLength}));
}

TEST_F(ScalePartitionsTest, FileSystemsOfMoreThan2To32SectorsAreToldTheirWholeSize)
{
    SHOWS(KkShrinkPartition, KK_STATUS_SUCCESS, "a file system is told sizes above 2^32 sectors");
    SHOWS(KkExtendPartition, KK_STATUS_SUCCESS, "driver and file system are told sizes above 2^32 bytes and sectors");

    AddDisk(kKind, {{kMiB, 60 * kTiB}}, kGiantDisk);

    ASSERT_EQ(Shrink(kMiB, 20 * kTiB), 0);
    const machine::CallRecord* const prepared = machine.journal.First({.code = kk::kFsctlShrinkVolume});
    ASSERT_NE(prepared, nullptr);
    const auto information = machine::TakeRecord<kk::ShrinkVolumeInformation>(prepared->input);
    EXPECT_EQ(static_cast<uint64_t>(information.newNumberOfSectors), 20 * kTiB / kGiantSector);
    EXPECT_THAT(Partitions(), ElementsAre(Place{kMiB, 20 * kTiB}));

    ASSERT_EQ(Extend(kMiB, 50 * kTiB), 0);
    EXPECT_THAT(SentWith(kk::kIoctlDiskGrowPartition), ElementsAre(1, 30 * kTiB));
    EXPECT_THAT(SentWith(kk::kFsctlExtendVolume), ElementsAre(50 * kTiB / kGiantSector));
    EXPECT_THAT(Partitions(), ElementsAre(Place{kMiB, 50 * kTiB}));
}

TEST_F(ScalePartitionsTest, AnEditOf64TiBMovesNoMoreThanOneOf64MiB)
{
    SHOWS(KkCreatePartition, KK_STATUS_SUCCESS,
          "an edit of a disk of 64 TiB needs no more transfers and memory than "
          "one of 64 MiB");

    const auto cost = [this](uint64_t size) {
        AddDisk(kKind, {{kMiB, kMiB}}, size);
        machine.heap.ResetCounters();
        EXPECT_EQ(Create(size / 2, size / 4), 0);
        return CostSoFar();
    };
    const Cost small = cost(64 * kMiB);
    const Cost giant = cost(kGiantDisk);

    EXPECT_EQ(giant.transfers, small.transfers);
    EXPECT_EQ(giant.peakBytes, small.peakBytes);
}

TEST_F(ScalePartitionsTest, TheLastFreeSlotIsTakenAndThenThereIsNone)
{
    SHOWS(KkCreatePartition, KK_STATUS_DISK_FULL,
          "a table of 128 or 1024 entries is full; until then each slot is "
          "taken");
    SHOWS(KkDeletePartition, KK_STATUS_SUCCESS, "a partition in a full table of 128 or 1024 entries makes room");

    for (const uint32_t slots : {128u, 1024u}) {
        SCOPED_TRACE(slots);
        AddNearlyFullDisk(slots);
        EXPECT_EQ(CountPartitions(), slots - 1);

        EXPECT_EQ(Create(kLastStart, kTiB, kTiB), 0);
        EXPECT_EQ(Partitions().back(), (Place{kLastStart, kTiB}));
        EXPECT_EQ(CountPartitions(), slots);

        EXPECT_EQ(Create(kLastStart + kTiB, kTiB, kTiB), KK_STATUS_DISK_FULL);
        EXPECT_EQ(Delete(2 * kMiB), 0);
        EXPECT_EQ(CountPartitions(), slots - 1);
        EXPECT_EQ(Create(kLastStart + kTiB, kTiB, kTiB), 0);
        EXPECT_EQ(CountPartitions(), slots);
    }
}

TEST_F(ScalePartitionsTest, ATableOfEightTimesTheSlotsCostsAtMostEightTimesTheMemoryAndNoMoreTransfers)
{
    SHOWS(KkCreatePartition, KK_STATUS_SUCCESS,
          "memory grows in proportion to the entries of the table, and transfers "
          "do not");

    const auto cost = [this](uint32_t slots) {
        AddNearlyFullDisk(slots);
        machine.heap.ResetCounters();
        EXPECT_EQ(Create(kLastStart, kTiB, kTiB), 0);
        return CostSoFar();
    };
    const Cost usual = cost(128);
    const Cost large = cost(1024);

    EXPECT_EQ(large.transfers, usual.transfers);
    // Twice that much: buffers that double hold up to as much again that is unused.
    EXPECT_LE(large.peakBytes, 16 * usual.peakBytes);
    EXPECT_LE(large.peakBytes, kListsBytes);
}

}  // namespace
