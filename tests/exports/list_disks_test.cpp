#include <algorithm>
#include <cstring>

#include "exports/support/export_test.h"
#include "support/sweep.h"

namespace {

constexpr uint32_t kGeometry = 0x700A0;
constexpr uint32_t kLayout = 0x70050;

class ListDisksTest : public ExportTest {
protected:
    /// All the disks, into records that were filled with a pattern before.
    std::vector<KkDiskInfo> List(uint32_t capacity = 32)
    {
        std::vector<KkDiskInfo> records(capacity);
        std::memset(records.data(), 0xEE, records.size() * sizeof(KkDiskInfo));
        EXPECT_EQ(api.listDisks(records.data(), capacity, &count), 0);
        records.resize(std::min(count, capacity));
        return records;
    }

    uint32_t count = 0xFFFF;
};

TEST_F(ListDisksTest, DescribesEachDiskAndLeavesTheUnusedBytesAlone)
{
    SHOWS(KkListDisks, KK_STATUS_SUCCESS,
          "each disk's number, size, sector size, style and partition count are told; two fields are never written");

    machine.AddDisk(64 * kMiB).Gpt({.partitions = {{.start = kMiB, .length = 8 * kMiB}}});

    const std::vector<KkDiskInfo> disks = List();

    ASSERT_EQ(disks.size(), 1u);
    EXPECT_EQ(disks[0].number, 0u);
    EXPECT_EQ(disks[0].size, 64 * kMiB);
    EXPECT_EQ(disks[0].sectorSize, 512u);
    EXPECT_EQ(disks[0].partitionStyle, KK_PARTITION_STYLE_GPT);
    EXPECT_EQ(disks[0].partitionCount, 1u);
    EXPECT_EQ(disks[0].notWritten4, 0xEEEEEEEEu);
    EXPECT_EQ(disks[0].notWritten28, 0xEEEEEEEEu);
}

TEST_F(ListDisksTest, OnlyCountsWithoutRecords)
{
    SHOWS(KkListDisks, KK_STATUS_SUCCESS, "without records the disks are counted, whatever the capacity");

    machine.AddDisk(8 * kMiB);
    machine.AddDisk(8 * kMiB);

    EXPECT_EQ(api.listDisks(nullptr, 0, &count), 0);
    EXPECT_EQ(count, 2u);
    EXPECT_EQ(api.listDisks(nullptr, 5, &count), 0);
    EXPECT_EQ(count, 2u);
}

TEST_F(ListDisksTest, CountsAllDisksWhenOnlySomeRecordsFit)
{
    SHOWS(KkListDisks, KK_STATUS_SUCCESS,
          "with room for fewer records the count is still that of all disks, and nothing is written past the room");

    for (int i = 0; i < 3; ++i) {
        machine.AddDisk(8 * kMiB);
    }
    KkDiskInfo records[2];
    std::memset(records, 0xEE, sizeof(records));

    EXPECT_EQ(api.listDisks(records, 1, &count), 0);

    EXPECT_EQ(count, 3u);
    EXPECT_EQ(records[0].number, 0u);
    EXPECT_EQ(records[1].number, 0xEEEEEEEEu);
}

TEST_F(ListDisksTest, WritesNothingIntoRecordsWithoutCapacity)
{
    SHOWS(KkListDisks, KK_STATUS_SUCCESS, "records with a capacity of 0 are left alone; the disks are counted");

    machine.AddDisk(8 * kMiB);
    KkDiskInfo record;
    std::memset(&record, 0xEE, sizeof(record));

    EXPECT_EQ(api.listDisks(&record, 0, &count), 0);

    EXPECT_EQ(count, 1u);
    EXPECT_EQ(record.number, 0xEEEEEEEEu);
}

TEST_F(ListDisksTest, NeedsNoCount)
{
    SHOWS(KkListDisks, KK_STATUS_SUCCESS, "the count need not be asked for");

    machine.AddDisk(8 * kMiB);
    KkDiskInfo record = {};

    EXPECT_EQ(api.listDisks(&record, 1, nullptr), 0);

    EXPECT_EQ(record.size, 8 * kMiB);
}

TEST_F(ListDisksTest, FindsNothingOnAMachineWithoutDisks)
{
    SHOWS(KkListDisks, KK_STATUS_SUCCESS, "a machine without disks has none");

    EXPECT_TRUE(List().empty());
    EXPECT_EQ(count, 0u);
}

TEST_F(ListDisksTest, DoesNotNeedNumbersWithoutGaps)
{
    SHOWS(KkListDisks, KK_STATUS_SUCCESS, "disk numbers may have gaps; the order is rising");

    machine.AddDisk(8 * kMiB, {.number = 0});
    machine.AddDisk(16 * kMiB, {.number = 2});

    const std::vector<KkDiskInfo> disks = List();

    ASSERT_EQ(disks.size(), 2u);
    EXPECT_EQ(disks[0].number, 0u);
    EXPECT_EQ(disks[1].number, 2u);
}

TEST_F(ListDisksTest, FindsDisk31AndLooksNoFurther)
{
    SHOWS(KkListDisks, KK_STATUS_SUCCESS, "disk 31 is found, disk 32 not looked for");

    machine.AddDisk(8 * kMiB, {.number = 31});
    machine.AddDisk(8 * kMiB, {.number = 32});

    const std::vector<KkDiskInfo> disks = List();

    ASSERT_EQ(disks.size(), 1u);
    EXPECT_EQ(disks[0].number, 31u);
    EXPECT_EQ(machine.journal.Count({.object = "PhysicalDrive32"}), 0u);
}

TEST_F(ListDisksTest, CountsDisksWithoutATable)
{
    SHOWS(KkListDisks, KK_STATUS_SUCCESS, "a disk without a table is listed as raw with 0 partitions");

    machine.AddDisk(8 * kMiB);

    const std::vector<KkDiskInfo> disks = List();

    ASSERT_EQ(disks.size(), 1u);
    EXPECT_EQ(disks[0].partitionStyle, KK_PARTITION_STYLE_RAW);
    EXPECT_EQ(disks[0].partitionCount, 0u);
}

TEST_F(ListDisksTest, CountsPartitionsWithoutTheirContainer)
{
    SHOWS(KkListDisks, KK_STATUS_SUCCESS,
          "partitions of an MBR disk count with logical drives and without the extended container");

    machine.AddDisk(64 * kMiB).Mbr(
        {.partitions = {{.start = kMiB, .length = 4 * kMiB}},
         .logicals = {{.start = 16 * kMiB, .length = 4 * kMiB}, {.start = 24 * kMiB, .length = 4 * kMiB}}});

    const std::vector<KkDiskInfo> disks = List();

    ASSERT_EQ(disks.size(), 1u);
    EXPECT_EQ(disks[0].partitionStyle, KK_PARTITION_STYLE_MBR);
    EXPECT_EQ(disks[0].partitionCount, 3u);
}

TEST_F(ListDisksTest, ReportsTheSectorSizeAnd512WhenTheDiskReportsNone)
{
    SHOWS(KkListDisks, KK_STATUS_SUCCESS, "the sector size is the disk's, and 512 when it reports 0");

    machine.AddDisk(8 * kMiB, {.sectorSize = 4096});
    machine.AddDisk(8 * kMiB, {.sectorSize = 4096}).behaviour.reportsZeroBytesPerSector = true;

    const std::vector<KkDiskInfo> disks = List();

    ASSERT_EQ(disks.size(), 2u);
    EXPECT_EQ(disks[0].sectorSize, 4096u);
    EXPECT_EQ(disks[1].sectorSize, 512u);
}

TEST_F(ListDisksTest, LeavesOutADiskWhoseGeometryIsUnknown)
{
    SHOWS(KkListDisks, KK_STATUS_SUCCESS, "a disk whose size cannot be asked for is left out");

    machine.AddDisk(8 * kMiB).behaviour.geometryFails = true;
    machine.AddDisk(8 * kMiB);

    const std::vector<KkDiskInfo> disks = List();

    ASSERT_EQ(disks.size(), 1u);
    EXPECT_EQ(disks[0].number, 1u);
}

TEST_F(ListDisksTest, LeavesOutADiskThatReportsNoSize)
{
    SHOWS(KkListDisks, KK_STATUS_SUCCESS, "a disk that reports a size of 0 is left out");

    machine.AddDisk(8 * kMiB);
    machine.OnControl({.code = kGeometry}, [](const machine::CallRecord&, const machine::ControlRequest&) {
        return std::optional(machine::ControlAnswer{.output = std::vector<uint8_t>(40)});
    });

    EXPECT_TRUE(List().empty());
}

TEST_F(ListDisksTest, LeavesOutADiskThatNeverTellsItsLayout)
{
    SHOWS(KkListDisks, KK_STATUS_SUCCESS, "a disk whose layout cannot be read in six attempts is left out");

    machine.AddDisk(8 * kMiB).behaviour.layoutFailures = 6;

    EXPECT_TRUE(List().empty());
    EXPECT_EQ(machine.journal.Count({.kind = machine::CallKind::DeviceControl, .code = kLayout}), 6u);
}

TEST_F(ListDisksTest, OpensEachDiskOnceForReadingAndAsksForGeometryThenLayout)
{
    SHOWS(KkListDisks, KK_STATUS_SUCCESS,
          "each of the numbers 0 to 31 is opened once, for reading; size comes before layout");

    machine.AddDisk(8 * kMiB);

    List();

    const machine::CallRecord* const open = machine.journal.First({.object = "PhysicalDrive0"});
    ASSERT_NE(open, nullptr);
    EXPECT_EQ(open->access, 0x120089u);
    EXPECT_EQ(open->share, 3u);
    EXPECT_EQ(open->options, 0x860u);
    EXPECT_EQ(machine.journal.Count({.kind = machine::CallKind::CreateFile}), 32u);
    EXPECT_TRUE(machine.journal.Before({.code = kGeometry}, {.code = kLayout}));
}

TEST_F(ListDisksTest, SucceedsWhateverFails)
{
    SHOWS(KkListDisks, KK_STATUS_SUCCESS,
          "it succeeds whichever call of the system fails, also when all later ones do");

    machine.AddDisk(16 * kMiB).Gpt({.partitions = {{.start = kMiB, .length = 4 * kMiB}}});
    machine.AddDisk(16 * kMiB).Mbr({.partitions = {{.start = kMiB, .length = 4 * kMiB}}});

    for (const FaultMode mode : {FaultMode::OneCall, FaultMode::ThatCallAndAllLater}) {
        const uint64_t calls = SweepFailingCalls(
            machine, mode, [&] { return api.listDisks(nullptr, 0, &count); },
            [&](const machine::CallRecord* failed, int32_t status) {
                EXPECT_EQ(status, 0);
                EXPECT_LE(count, 2u);
                EXPECT_TRUE(failed != nullptr || count == 2);
            });
        // 32 opens; for each of the two disks its object, geometry, answer buffer, layout and partition list.
        EXPECT_EQ(calls, 32u + 2u * 5u);
    }
}

TEST_F(ListDisksTest, LosesOnlyTheDiskThatTroubleMeets)
{
    SHOWS(KkListDisks, KK_STATUS_SUCCESS, "a disk that does not open is left out, the others are listed");

    machine.AddDisk(16 * kMiB);
    machine.AddDisk(16 * kMiB);
    machine.faults.Fail({.kind = machine::CallKind::CreateFile, .object = "PhysicalDrive0"}, 1, 0xC0000022);

    const std::vector<KkDiskInfo> disks = List();

    ASSERT_EQ(disks.size(), 1u);
    EXPECT_EQ(disks[0].number, 1u);
}

}  // namespace
