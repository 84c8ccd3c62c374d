#include <gmock/gmock.h>

#include "disk/disk_controls.h"
#include "machine/gpt_copy.h"
#include "machine/snapshot_view.h"
#include "support/table_judges.h"
#include "tests/machine/native_calls.h"

namespace machine {
namespace {

using ::testing::HasSubstr;

constexpr uint64_t kDiskBytes = 64 * kMiB;
const std::u16string kDisk = u"\\??\\PhysicalDrive0";

class GrowPartitionTest : public MachineTest {
protected:
    static Status Grow(uint32_t number, int64_t bytes)
    {
        const kk::DiskGrowPartition growth = {number, 0, bytes};
        return Handle(kDisk, kForWriting).Control(kk::kIoctlDiskGrowPartition, 0, BytesOf(growth)).status;
    }
    uint64_t LengthInLayout(uint64_t start) const
    {
        for (const kk::PartitionInformationEx& partition : machine.FindDisk(0)->CachedLayout().partitions) {
            if (partition.startingOffset == static_cast<int64_t>(start)) {
                return static_cast<uint64_t>(partition.partitionLength);
            }
        }
        return 0;
    }
    /// The bytes of the disk as a file.
    const std::string& Exported()
    {
        machine.FindDisk(0)->ExportFile(0, kDiskBytes, file_.Path());
        return file_.Path();
    }

private:
    TemporaryFile file_;
};

constexpr int64_t kFourMiB = 4 * kMiB;

TEST_F(GrowPartitionTest, BothCopiesOfAGptAndTheDriversLayoutFollow)
{
    machine.AddDisk(kDiskBytes)
        .Gpt({.partitions = {{kMiB, 8 * kMiB}, {.start = 20 * kMiB, .length = 8 * kMiB, .slot = 5}}});

    ASSERT_EQ(Grow(2, kFourMiB), kSuccess);

    EXPECT_EQ(LengthInLayout(20 * kMiB), 12 * kMiB);
    EXPECT_EQ(LengthInLayout(kMiB), 8 * kMiB);
    EXPECT_EQ(ComplaintAboutGpt(Exported()), "");
    EXPECT_THAT(RunToolOrThrow({"sfdisk", "-d", Exported()}), HasSubstr("start=       40960, size=       24576"));
    machine.FindDisk(0)->Rescan();
    EXPECT_EQ(LengthInLayout(20 * kMiB), 12 * kMiB);
}

TEST_F(GrowPartitionTest, AGptWithLargeSectorsFollowsToo)
{
    machine.AddDisk(kDiskBytes, {.sectorSize = 4096}).Gpt({.partitions = {{kMiB, 8 * kMiB}}});

    ASSERT_EQ(Grow(1, kFourMiB), kSuccess);

    EXPECT_EQ(LengthInLayout(kMiB), 12 * kMiB);
    EXPECT_EQ(ComplaintAboutGpt(Exported(), 4096), "");
    EXPECT_THAT(PartitionsForOthers(Exported(), 4096), ::testing::StartsWith("1 256 3072 "));
}

TEST_F(GrowPartitionTest, ADamagedCopyIsWholeAgainAfterwards)
{
    for (const uint64_t header : {uint64_t{512}, kDiskBytes - 512}) {
        machine.RemoveDisk(0);
        machine.AddDisk(kDiskBytes).Gpt({.partitions = {{kMiB, 8 * kMiB}}}).FlipBit(header + 40);

        EXPECT_EQ(Grow(1, kFourMiB), kSuccess);
        EXPECT_EQ(ComplaintAboutGpt(Exported()), "");
    }
}

TEST_F(GrowPartitionTest, EntriesOfTheBackupStayWhereItsHeaderPutsThem)
{
    Disk& disk = machine.AddDisk(kDiskBytes).Gpt({.partitions = {{kMiB, 8 * kMiB}}});
    constexpr uint64_t kLastSector = kDiskBytes / 512 - 1;
    constexpr uint64_t kEntriesSector = kLastSector - 1000;
    MemoryStorage storage(kDiskBytes);
    storage.Write(kDiskBytes - kMiB, disk.ReadBytes(kDiskBytes - kMiB, kMiB));
    GptCopy backup;
    ASSERT_TRUE(ReadGptCopy(storage, 512, kLastSector, backup));
    backup.header.entriesLba = kEntriesSector;
    ASSERT_TRUE(WriteGptCopy(storage, 512, backup));
    std::vector<uint8_t> end(kMiB);
    storage.Read(kDiskBytes - kMiB, end);
    disk.WriteBytes(kDiskBytes - kMiB, end);

    ASSERT_EQ(Grow(1, kFourMiB), kSuccess);

    const auto entry = TakeRecord<GptEntryRecord>(disk.ReadBytes(kEntriesSector * 512, 512));
    EXPECT_EQ(entry.lastLba, 13 * 2048u - 1);
    const auto header = TakeRecord<GptHeaderRecord>(disk.ReadBytes(kDiskBytes - 512, 512));
    EXPECT_EQ(header.entriesLba, kEntriesSector);
}

TEST_F(GrowPartitionTest, AGptThatIsGoneFromTheDiskIsNotEdited)
{
    Disk& disk = machine.AddDisk(kDiskBytes).Gpt({.partitions = {{kMiB, 8 * kMiB}}});
    disk.FlipBit(512).FlipBit(kDiskBytes - 512);
    EXPECT_EQ(Grow(1, kFourMiB), kDiskCorruptError);

    MemoryStorage empty(kDiskBytes);
    WriteGptTable(empty, 512, {});
    std::vector<uint8_t> table(34 * 512);
    empty.Read(0, table);
    disk.WriteBytes(0, table);
    EXPECT_EQ(Grow(1, kFourMiB), kInvalidParameter);
    EXPECT_EQ(LengthInLayout(kMiB), 8 * kMiB);
}

TEST_F(GrowPartitionTest, APrimaryPartitionOfAnMbrFollows)
{
    machine.AddDisk(kDiskBytes).Mbr({.partitions = {{kMiB, 8 * kMiB}, {20 * kMiB, 8 * kMiB}}});

    ASSERT_EQ(Grow(1, kFourMiB), kSuccess);
    ASSERT_EQ(Grow(2, kDiskBytes - 28 * kMiB), kSuccess) << "an MBR disk is usable to its end";

    EXPECT_EQ(LengthInLayout(kMiB), 12 * kMiB);
    EXPECT_EQ(ComplaintAboutMbr(Exported()), "");
    const std::string dump = RunToolOrThrow({"sfdisk", "-d", Exported()});
    EXPECT_THAT(dump, HasSubstr("start=        2048, size=       24576, type=7"));
    EXPECT_THAT(dump, HasSubstr("start=       40960, size=       90112, type=7"));
}

TEST_F(GrowPartitionTest, LogicalDrivesFollowWithTheLinksThatLeadToThem)
{
    machine.AddDisk(kDiskBytes).Mbr({.logicals = {{4 * kMiB, 4 * kMiB}, {16 * kMiB, 4 * kMiB}, {40 * kMiB, kMiB}}});

    ASSERT_EQ(Grow(1, kFourMiB), kSuccess);
    ASSERT_EQ(Grow(2, kFourMiB), kSuccess);

    EXPECT_EQ(ComplaintAboutMbr(Exported()), "");
    const std::string dump = RunToolOrThrow({"sfdisk", "-d", Exported()});
    EXPECT_THAT(dump, HasSubstr("start=        8192, size=       16384, type=7"));
    EXPECT_THAT(dump, HasSubstr("start=       32768, size=       16384, type=7"));
    EXPECT_THAT(dump, HasSubstr("start=       81920, size=        2048, type=7"));
    const Layout cached = machine.FindDisk(0)->CachedLayout();
    machine.FindDisk(0)->Rescan();
    for (size_t i = 0; i < cached.partitions.size(); ++i) {
        EXPECT_EQ(machine.FindDisk(0)->CachedLayout().partitions[i].partitionLength,
                  cached.partitions[i].partitionLength)
            << "entry " << i;
    }
}

TEST_F(GrowPartitionTest, AnMbrWithLargeSectorsFollowsToo)
{
    machine.AddDisk(kDiskBytes, {.sectorSize = 4096}).Mbr({.logicals = {{4 * kMiB, 4 * kMiB}, {16 * kMiB, 4 * kMiB}}});

    ASSERT_EQ(Grow(1, kFourMiB), kSuccess);

    EXPECT_EQ(ComplaintAboutMbr(Exported(), 4096), "");
    EXPECT_THAT(PartitionsForOthers(Exported(), 4096), ::testing::HasSubstr("5 1024 2048 "));
}

TEST_F(GrowPartitionTest, ALogicalDriveStaysInsideItsContainerAndOffTheNextRecord)
{
    machine.AddDisk(kDiskBytes).Mbr({.logicals = {{4 * kMiB, 4 * kMiB}, {16 * kMiB, 4 * kMiB}}});

    EXPECT_EQ(Grow(2, 512), kInvalidParameter) << "the container ends with the last drive";
    EXPECT_EQ(Grow(1, 7 * kMiB + 512), kInvalidParameter) << "the next boot record lies 1 MiB before its drive";
    EXPECT_EQ(Grow(1, 7 * kMiB), kSuccess);
}

TEST_F(GrowPartitionTest, WhatMakesNoSenseIsRefusedAndChangesNothing)
{
    machine.AddDisk(kDiskBytes).Gpt({.partitions = {{kMiB, 8 * kMiB}, {20 * kMiB, 8 * kMiB}}});
    const std::vector<uint8_t> before = machine.FindDisk(0)->ReadBytes(0, kMiB);
    const int64_t usableRoom = kDiskBytes - 33 * 512 - 28 * kMiB;

    EXPECT_EQ(Grow(0, kFourMiB), kInvalidParameter);
    EXPECT_EQ(Grow(3, kFourMiB), kInvalidParameter);
    EXPECT_EQ(Grow(1, 11 * kMiB + 512), kInvalidParameter) << "into the next partition";
    EXPECT_EQ(Grow(2, usableRoom + 512), kInvalidParameter) << "into the table's backup";
    EXPECT_EQ(Grow(1, 100), kInvalidParameter) << "part of a sector";
    EXPECT_EQ(Grow(1, -static_cast<int64_t>(8 * kMiB)), kInvalidParameter) << "nothing left";
    EXPECT_EQ(Grow(1, INT64_MAX), kInvalidParameter);
    EXPECT_EQ(Grow(1, INT64_MIN), kInvalidParameter);
    EXPECT_EQ(machine.FindDisk(0)->ReadBytes(0, kMiB), before);
    EXPECT_EQ(LengthInLayout(kMiB), 8 * kMiB);

    EXPECT_EQ(Grow(1, 11 * kMiB), kSuccess);
    EXPECT_EQ(Grow(2, usableRoom), kSuccess);
    EXPECT_EQ(ComplaintAboutGpt(Exported()), "");
}

TEST_F(GrowPartitionTest, TheUsableEndIsTheOneThatTheHeaderNames)
{
    TemporaryFile file(kDiskBytes);
    RunToolOrThrow({"sgdisk", "-n", "1:2048:+8M", file.Path()});
    RunToolOrThrow({"truncate", "-s", std::to_string(2 * kDiskBytes), file.Path()});
    machine.AddDiskFile(file.Path());

    EXPECT_EQ(Grow(1, kDiskBytes - 33 * 512 - 9 * kMiB + 512), kInvalidParameter);
    EXPECT_EQ(Grow(1, kDiskBytes - 33 * 512 - 9 * kMiB), kSuccess);
}

TEST_F(GrowPartitionTest, ANegativeNumberOfBytesShrinks)
{
    machine.AddDisk(kDiskBytes).Gpt({.partitions = {{kMiB, 8 * kMiB}}});

    ASSERT_EQ(Grow(1, -kFourMiB), kSuccess);

    EXPECT_EQ(LengthInLayout(kMiB), 4 * kMiB);
    EXPECT_EQ(machine.FindVolume(0, kMiB)->Length(), 4 * kMiB);
    EXPECT_EQ(ComplaintAboutGpt(Exported()), "");
}

TEST_F(GrowPartitionTest, TheRecordMustBeWholeAndTheHandleMustReadAndWrite)
{
    machine.AddDisk(kDiskBytes).Gpt({.partitions = {{kMiB, 8 * kMiB}}});
    const std::vector<uint8_t> record = BytesOf(kk::DiskGrowPartition{1, 0, kFourMiB});
    const std::vector<uint8_t> shortRecord(record.begin(), record.end() - 1);
    const auto grow = [](uint32_t access, const std::vector<uint8_t>& input) {
        return Handle(kDisk, {.access = access}).Control(kk::kIoctlDiskGrowPartition, 0, input).status;
    };

    EXPECT_EQ(grow(kk::kFileGenericRead | kk::kFileGenericWrite, shortRecord), kInfoLengthMismatch);
    EXPECT_EQ(grow(kk::kFileGenericRead, record), kAccessDenied);
    EXPECT_EQ(grow(kk::kFileGenericWrite, record), kAccessDenied);
    EXPECT_EQ(grow(kk::kFileGenericRead | kk::kFileGenericWrite, record), kSuccess);
}

TEST_F(GrowPartitionTest, DisksThatCannotBeWrittenRefuse)
{
    Disk& disk = machine.AddDisk(kDiskBytes).Gpt({.partitions = {{kMiB, 8 * kMiB}}});

    disk.behaviour.readOnly = true;
    EXPECT_EQ(Grow(1, kFourMiB), kMediaWriteProtected);
    disk.behaviour.noMedia = true;
    EXPECT_EQ(Grow(1, kFourMiB), kNoMediaInDevice);
}

TEST_F(GrowPartitionTest, AMediumWithoutATableHasNothingToGrow)
{
    machine.AddDisk(kDiskBytes).Format(0, kDiskBytes, FileSystem::Fat16).Rescan();

    EXPECT_EQ(Grow(1, -kFourMiB), kNotSupported);
}

TEST_F(GrowPartitionTest, ALiveVolumeGrowsWhereItIs)
{
    machine.AddDisk(kDiskBytes).Gpt({.partitions = {{kMiB, 8 * kMiB}}});
    const Volume* const volume = machine.FindVolume(0, kMiB);
    const Handle handle(volume->DeviceName(), kForWriting);

    ASSERT_EQ(Grow(1, kFourMiB), kSuccess);

    EXPECT_EQ(machine.FindVolume(0, kMiB), volume);
    EXPECT_EQ(handle.Control(kk::kIoctlDiskGetLengthInfo, 8).As<uint64_t>(), 12 * kMiB);
    EXPECT_EQ(handle.Write(11 * kMiB, std::vector<uint8_t>(512)).information, 512u);
}

TEST_F(GrowPartitionTest, AVolumeThatHasNotArrivedYetArrivesWithItsNewLength)
{
    machine.switches.volumeArrivalDelay = 6;
    machine.AddDisk(kDiskBytes).Gpt({.partitions = {{kMiB, 8 * kMiB}}});

    ASSERT_EQ(Grow(1, kFourMiB), kSuccess);
    ASSERT_EQ(machine.FindVolume(0, kMiB), nullptr);
    while (machine.FindVolume(0, kMiB) == nullptr) {
        const Handle passTheTime(kDisk);
    }

    EXPECT_EQ(machine.FindVolume(0, kMiB)->Length(), 12 * kMiB);
}

TEST_F(GrowPartitionTest, ObserversHearOfTheTablesSectors)
{
    Disk& disk = machine.AddDisk(kDiskBytes).Gpt({.partitions = {{kMiB, 8 * kMiB}}});
    std::vector<uint64_t> places;
    disk.AddWriteObserver([&](uint64_t offset, uint64_t) { places.push_back(offset); });

    ASSERT_EQ(Grow(1, kFourMiB), kSuccess);

    EXPECT_THAT(places, ::testing::UnorderedElementsAre(512, 1024, kDiskBytes - 512, kDiskBytes - 33 * 512));
}

TEST_F(GrowPartitionTest, ASnapshotKeepsTheLengthAndTheBytesOfItsMoment)
{
    Disk& disk = machine.AddDisk(kDiskBytes).Gpt({.partitions = {{kMiB, 8 * kMiB}}});
    disk.WriteBytes(7 * kMiB, std::vector<uint8_t>(512, 0x77));
    SnapshotView snapshot(machine.volumes.Find(0, kMiB));

    ASSERT_EQ(Grow(1, -kFourMiB), kSuccess);
    disk.WriteBytes(7 * kMiB, std::vector<uint8_t>(512, 0x11));
    std::vector<uint8_t> sector(512);

    EXPECT_EQ(snapshot.Length(), 8 * kMiB);
    EXPECT_TRUE(snapshot.Read(6 * kMiB, sector));
    EXPECT_EQ(sector, std::vector<uint8_t>(512, 0x77));
}

}  // namespace
}  // namespace machine
