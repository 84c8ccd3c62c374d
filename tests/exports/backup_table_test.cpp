#include <algorithm>
#include <cstring>

#include "exports/support/backup_test.h"
#include "support/forked_run.h"

namespace {

class BackupTableTest : public BackupTest {
protected:
    machine::Disk& AddMbrDisk()
    {
        return machine.AddDisk(64 * kMiB).Mbr(
            {.partitions = {{.start = 8 * kMiB, .length = 4 * kMiB, .type = 0x07, .active = true},
                            {.start = kMiB, .length = 4 * kMiB, .type = 0x0C}},
             .logicals = {{.start = 32 * kMiB, .length = 4 * kMiB, .type = 0x83}}});
    }
};

TEST_F(BackupTableTest, KeepsTheGuidsTypesNamesAndPlacesOfAGptDisk)
{
    SHOWS(KkBackup, KK_STATUS_SUCCESS, "the image's GPT keeps identifiers, types, names and places");

    machine::Disk& disk = AddUsualDisk();

    ASSERT_EQ(Backup(), 0);

    const machine::Layout source = disk.CachedLayout();
    const machine::Layout image = ImageLayout();
    EXPECT_EQ(image.header.partitionStyle, kk::WirePartitionStyle::Gpt);
    EXPECT_TRUE(image.header.gpt.diskId == source.header.gpt.diskId);
    ASSERT_EQ(image.partitions.size(), source.partitions.size());
    for (size_t i = 0; i < image.partitions.size(); ++i) {
        EXPECT_EQ(image.partitions[i].startingOffset, source.partitions[i].startingOffset);
        EXPECT_EQ(image.partitions[i].partitionLength, source.partitions[i].partitionLength);
        EXPECT_TRUE(image.partitions[i].gpt.partitionType == source.partitions[i].gpt.partitionType);
        EXPECT_TRUE(image.partitions[i].gpt.partitionId == source.partitions[i].gpt.partitionId);
        EXPECT_EQ(std::memcmp(image.partitions[i].gpt.name, source.partitions[i].gpt.name, 72), 0);
    }
}

TEST_F(BackupTableTest, DropsGptAttributes)
{
    SHOWS(KkBackup, KK_STATUS_SUCCESS, "GPT attributes are dropped");

    machine.AddDisk(64 * kMiB).Gpt({.partitions = {{.start = kMiB, .length = kMiB, .attributes = 0x8000000000000001}}});

    ASSERT_EQ(Backup(), 0);

    EXPECT_EQ(ImageLayout().partitions.at(0).gpt.attributes, 0u);
}

TEST_F(BackupTableTest, WritesBothCopiesOfTheTable)
{
    SHOWS(KkBackup, KK_STATUS_SUCCESS, "both copies of the GPT are written");

    AddUsualDisk();

    ASSERT_EQ(Backup(), 0);

    // Without its primary copy the image still tells the same table.
    std::vector<uint8_t> zeros(34 * 512);
    zeros[510] = 0x55;
    zeros[511] = 0xAA;
    zeros[450] = 0xEE;
    ASSERT_TRUE(Image()->Write(0, zeros));
    EXPECT_EQ(ImagePartitionStarts(), (std::vector<uint64_t>{kEfiStart, kReservedStart, kNtfsStart}));
}

TEST_F(BackupTableTest, PutsLogicalDrivesOfAnMbrDiskIntoPrimaryEntriesAndMarksNoneActive)
{
    SHOWS(KkBackup, KK_STATUS_SUCCESS,
          "logical drives become primary entries; no boot code, no signature, none active");

    machine::Disk& disk = AddMbrDisk();

    ASSERT_EQ(Backup(), 0);

    const std::vector<uint8_t> sector = ImageBytes(0, 512);
    EXPECT_TRUE(std::all_of(sector.begin(), sector.begin() + 446, [](uint8_t byte) { return byte == 0; }))
        << "no boot code and no signature";
    const uint8_t types[4] = {sector[450], sector[466], sector[482], sector[498]};
    EXPECT_EQ(types[0], 0x07);
    EXPECT_EQ(types[1], 0x0C);
    EXPECT_EQ(types[2], 0x83);
    EXPECT_EQ(types[3], 0x00);
    for (const size_t record : {446u, 462u, 478u, 494u}) {
        EXPECT_EQ(sector[record], 0) << "a partition is active";
    }
    EXPECT_EQ(sector[510], 0x55);
    EXPECT_EQ(sector[511], 0xAA);
    EXPECT_EQ(ImagePartitionStarts(), (std::vector<uint64_t>{8 * kMiB, kMiB, 32 * kMiB}));
    ExpectSameBytes(disk, 32 * kMiB, 32 * kMiB, 4 * kMiB);
}

TEST_F(BackupTableTest, HasRoomForFourPartitionsOfAnMbrDiskAndCopiesTheFifthAllTheSame)
{
    SHOWS(KkBackup, KK_STATUS_SUCCESS,
          "an MBR image lists four partitions; the data of a fifth is copied all the same");

    machine::Disk& disk = machine.AddDisk(64 * kMiB);
    disk.Mbr({.partitions = {{.start = kMiB, .length = kMiB}, {.start = 3 * kMiB, .length = kMiB}},
              .logicals = {{.start = 16 * kMiB, .length = kMiB},
                           {.start = 24 * kMiB, .length = kMiB},
                           {.start = 32 * kMiB, .length = kMiB}}});
    FillPattern(disk, 32 * kMiB, kMiB, 5);

    ASSERT_EQ(Backup(), 0);

    EXPECT_EQ(ImagePartitionStarts(), (std::vector<uint64_t>{kMiB, 3 * kMiB, 16 * kMiB, 24 * kMiB}));
    EXPECT_EQ(result.partitionsCopied, 5u);
    ExpectSameBytes(disk, 32 * kMiB, 32 * kMiB, kMiB);
    EXPECT_EQ(Manifest()["partitions"].size(), 5u);
}

TEST_F(BackupTableTest, KeepsPartitionsThatWereNotChosenAsEmptyRegions)
{
    SHOWS(KkBackup, KK_STATUS_SUCCESS, "partitions that were not chosen stay in the table as regions without data");

    AddUsualDisk();

    ASSERT_EQ(Backup({.partitions = {1}}), 0);

    EXPECT_EQ(ImagePartitionStarts(), (std::vector<uint64_t>{kEfiStart, kReservedStart, kNtfsStart}));
    EXPECT_EQ(result.partitionsCopied, 1u);
    EXPECT_FALSE(Image()->Written().Intersects(kReservedStart, kReservedLength));
    EXPECT_FALSE(Image()->Written().Intersects(kNtfsStart, kNtfsLength));
    EXPECT_EQ(Manifest()["omittedMode"], "keepEmpty");
}

TEST_F(BackupTableTest, LeavesPartitionsThatWereNotChosenOutWhenToldSo)
{
    SHOWS(KkBackup, KK_STATUS_SUCCESS, "partitions that were not chosen are left out of the table when asked for");

    machine::Disk& disk = AddUsualDisk();

    ASSERT_EQ(Backup({.partitions = {3, 1}, .omitRemove = 0x200}), 0);

    EXPECT_EQ(ImagePartitionStarts(), (std::vector<uint64_t>{kEfiStart, kNtfsStart}));
    ExpectSameBytes(disk, kNtfsStart, kNtfsStart, kNtfsLength);
    EXPECT_EQ(Manifest()["omittedMode"], "remove");
}

TEST_F(BackupTableTest, DoesTheSameOnAnMbrDisk)
{
    SHOWS(KkBackup, KK_STATUS_SUCCESS, "on an MBR disk too, omitted partitions are removed or kept as asked for");

    AddMbrDisk();

    ASSERT_EQ(Backup({.partitions = {2}, .omitRemove = 1}), 0);
    EXPECT_EQ(ImagePartitionStarts(), (std::vector<uint64_t>{kMiB}));

    images->Remove(ImagePath());
    ASSERT_EQ(Backup({.partitions = {2}}), 0);
    EXPECT_EQ(ImagePartitionStarts(), (std::vector<uint64_t>{8 * kMiB, kMiB, 32 * kMiB}));
}

TEST_F(BackupTableTest, GoesByTheSystemsPartitionNumbers)
{
    SHOWS(KkBackup, KK_STATUS_SUCCESS, "partitions are chosen by the system's numbers");

    AddUsualDisk().SetPartitionNumber(kNtfsStart, 9);

    ASSERT_EQ(Backup({.partitions = {9}, .omitRemove = 1}), 0);

    EXPECT_EQ(ImagePartitionStarts(), (std::vector<uint64_t>{kNtfsStart}));
    EXPECT_EQ(Manifest()["partitions"][0]["index"], 9);
}

TEST_F(BackupTableTest, MakesAnImageWithATableOnlyWhenNothingIsChosen)
{
    SHOWS(KkBackup, KK_STATUS_SUCCESS, "numbers that no partition has make an image with a table only");

    AddUsualDisk();

    ASSERT_EQ(Backup({.partitions = {77}}), 0);
    EXPECT_EQ(result.partitionsCopied, 0u);
    EXPECT_EQ(result.bytesCopied, 0u);
    EXPECT_EQ(ImagePartitionStarts().size(), 3u);

    images->Remove(ImagePath());
    ASSERT_EQ(Backup({.partitions = {77}, .omitRemove = 1}), 0);
    EXPECT_EQ(result.partitionsCopied, 0u);
    EXPECT_EQ(ImageLayout().header.partitionStyle, kk::WirePartitionStyle::Gpt);
    EXPECT_TRUE(ImagePartitionStarts().empty());
    EXPECT_EQ(Manifest()["partitions"].dump(), "[]");
}

TEST_F(BackupTableTest, LeavesAnEntryOutOfTheTableWhenThereIsNoMemoryForIt)
{
    SHOWS(KkBackup, KK_STATUS_SUCCESS,
          "an entry for which there is no memory is left out of the table; its data is copied");

    machine::Disk& disk = AddUsualDisk();
    constexpr uint64_t tableEntryBytes = 128;
    const int allocation = RunForked([&] {
        EXPECT_EQ(Backup(), 0);
        const std::vector<uint64_t>& sizes = machine.heap.Sizes();
        return static_cast<int>(std::ranges::find(sizes, 8 * tableEntryBytes) - sizes.begin()) + 1;
    });
    ASSERT_GT(allocation, 1);
    machine.heap.ResetCounters();
    machine.faults.Fail({.kind = machine::CallKind::Allocate}, static_cast<uint64_t>(allocation), 0);

    ASSERT_EQ(Backup(), 0);

    EXPECT_EQ(ImagePartitionStarts(), (std::vector<uint64_t>{kReservedStart, kNtfsStart}));
    ExpectSameBytes(disk, kEfiStart, kEfiStart, kEfiLength);
}

TEST_F(BackupTableTest, CompactPacksTheChosenPartitionsOnWholeMebibytes)
{
    SHOWS(KkBackup, KK_STATUS_SUCCESS, "packing puts the chosen partitions on whole MiB in their order on the disk");

    machine::Disk& disk = machine.AddDisk(512 * kMiB);
    const uint64_t first = 100 * kMiB + 512;
    disk.Gpt({.partitions = {{.start = 300 * kMiB, .length = 8 * kMiB}, {.start = 150 * kMiB, .length = first}}});
    FillPattern(disk, 300 * kMiB, 8 * kMiB, 1);
    FillPattern(disk, 150 * kMiB, 4 * kMiB, 2);

    ASSERT_EQ(Backup({.compact = 1}), 0);

    EXPECT_EQ(ImagePartitionStarts(), (std::vector<uint64_t>{kMiB, 102 * kMiB})) << "in the order on the disk";
    ExpectSameBytes(disk, 150 * kMiB, kMiB, first);
    ExpectSameBytes(disk, 300 * kMiB, 102 * kMiB, 8 * kMiB);
    EXPECT_EQ(images->ImageShape(ImagePath())->sizeBytes, 110 * kMiB + 33 * 512);
    EXPECT_EQ(Manifest()["virtualSize"], 110 * kMiB + 33 * 512);
    EXPECT_EQ(Manifest()["compact"], true);
}

TEST_F(BackupTableTest, CompactLeavesRoomForTheSecondTableOnLargeSectorsToo)
{
    SHOWS(KkBackup, KK_STATUS_SUCCESS, "packing leaves room for the second table with sectors of 4096 bytes too");

    machine.AddDisk(512 * kMiB, {.sectorSize = 4096}).Gpt({.partitions = {{.start = 100 * kMiB, .length = 8 * kMiB}}});

    ASSERT_EQ(Backup({.compact = 1}), 0);

    EXPECT_EQ(images->ImageShape(ImagePath())->sizeBytes, 9 * kMiB + 5 * 4096);
    EXPECT_EQ(ImagePartitionStarts(4096), (std::vector<uint64_t>{kMiB}));
}

TEST_F(BackupTableTest, CompactRemovesOmittedPartitionsWhateverElseIsAsked)
{
    SHOWS(KkBackup, KK_STATUS_SUCCESS, "packing removes omitted partitions whatever else is asked for");

    AddUsualDisk();

    ASSERT_EQ(Backup({.partitions = {3}, .omitRemove = 0, .compact = 0x100}), 0);

    EXPECT_EQ(ImagePartitionStarts(), (std::vector<uint64_t>{kMiB}));
    EXPECT_EQ(Manifest()["omittedMode"], "remove");
    EXPECT_EQ(Manifest()["partitions"].size(), 1u);
    EXPECT_EQ(Manifest()["partitions"][0]["offset"], kMiB);
    EXPECT_EQ(Manifest()["partitions"][0]["originalOffset"], kNtfsStart);
}

TEST_F(BackupTableTest, CompactPacksAnMbrDiskToo)
{
    SHOWS(KkBackup, KK_STATUS_SUCCESS, "packing works on an MBR disk too");

    AddMbrDisk();

    ASSERT_EQ(Backup({.compact = 1}), 0);

    EXPECT_EQ(ImagePartitionStarts(), (std::vector<uint64_t>{kMiB, 5 * kMiB, 9 * kMiB}));
    EXPECT_EQ(ImageBytes(450, 1)[0], 0x0C) << "the first partition on the disk comes first";
}

TEST_F(BackupTableTest, CompactWithNothingChosenIsTheSmallestImage)
{
    SHOWS(KkBackup, KK_STATUS_SUCCESS, "packing nothing makes the smallest image");
    SHOWS(KkBackup, KK_STATUS_UNSUCCESSFUL, "the service refuses an image below 3 MiB");

    AddUsualDisk();

    ASSERT_EQ(Backup({.partitions = {77}, .compact = 1}), 0);
    EXPECT_EQ(images->ImageShape(ImagePath())->sizeBytes, kMiB + 33 * 512);

    // Real services want at least 3 MiB.
    images->Remove(ImagePath());
    machine.Strict();
    EXPECT_EQ(Backup({.partitions = {77}, .compact = 1}), KK_STATUS_UNSUCCESSFUL);
}

TEST_F(BackupTableTest, ListsElementsOfTheManifestInLayoutOrderEvenWhenPacked)
{
    SHOWS(KkBackup, KK_STATUS_SUCCESS, "the manifest lists partitions in the disk's table order, also when packed");

    machine.AddDisk(512 * kMiB)
        .Gpt({.partitions = {{.start = 300 * kMiB, .length = 8 * kMiB}, {.start = 150 * kMiB, .length = 4 * kMiB}}});

    ASSERT_EQ(Backup({.compact = 1}), 0);

    EXPECT_EQ(Manifest()["partitions"][0]["originalOffset"], 300 * kMiB);
    EXPECT_EQ(Manifest()["partitions"][0]["offset"], 5 * kMiB);
    EXPECT_EQ(Manifest()["partitions"][1]["offset"], kMiB);
}

}  // namespace
