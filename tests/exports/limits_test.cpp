#include <algorithm>

#include "backup/volume_bitmap.h"
#include "disk/volume_controls.h"
#include "exports/support/backup_test.h"
#include "exports/support/image_mount_test.h"
#include "exports/support/partition_edit_test.h"
#include "exports/support/recover_test.h"
#include "exports/support/restore_test.h"
#include "support/forked_run.h"
#include "support/vhdx_builder.h"

// What the exports cannot do, lose or leave without a word, as docs/limits.md warns of it. Limits that another test
// shows are not shown again.

namespace {

using testing::ElementsAre;

class BackupLimitsTest : public BackupTest {};

TEST_F(BackupLimitsTest, ClustersForWhoseListThereIsNoMemoryAreMissingFromASuccessfulImage)
{
    SHOWS(KkBackup, KK_STATUS_SUCCESS, "clusters in use for whose list there is no memory are missing from the image");

    machine::Disk& disk = AddUsualDisk();
    constexpr uint64_t extentBytes = 16;
    const BackupOptions options = {.partitions = {3}, .usedBlocksOnly = 1};
    const int allocation = RunForked([&] {
        EXPECT_EQ(Backup(options), 0);
        const std::vector<uint64_t>& sizes = machine.heap.Sizes();
        return static_cast<int>(std::ranges::find(sizes, 8 * extentBytes) - sizes.begin()) + 1;
    });
    ASSERT_GT(allocation, 1);
    machine.heap.ResetCounters();
    machine.faults.Fail({.kind = machine::CallKind::Allocate}, static_cast<uint64_t>(allocation), 0);

    ASSERT_EQ(Backup(options), 0);

    EXPECT_EQ(result.liveUsedBlockCopies, 1u);
    EXPECT_NE(disk.ReadBytes(kNtfsStart, 512), std::vector<uint8_t>(512));
    EXPECT_EQ(ImageBytes(kNtfsStart, 512), std::vector<uint8_t>(512)) << "the boot sector, of all things";
}

TEST_F(BackupLimitsTest, TheCopyOfAnNtfsBootSectorBelongsToNoClusterInUse)
{
    SHOWS(KkBackup, KK_STATUS_SUCCESS,
          "NTFS's copy of its boot sector is in a whole copy and not among the clusters "
          "in use");

    machine::Disk& disk = AddUsualDisk();
    constexpr uint64_t lastSector = kNtfsStart + kNtfsLength - 512;
    ASSERT_NE(disk.ReadBytes(lastSector, 512), std::vector<uint8_t>(512));

    ASSERT_EQ(Backup({.partitions = {3}, .usedBlocksOnly = 1}), 0);
    EXPECT_EQ(ImageBytes(lastSector, 512), std::vector<uint8_t>(512));

    images->Remove(ImagePath());
    ASSERT_EQ(Backup({.partitions = {3}}), 0);
    ExpectSameBytes(disk, lastSector, lastSector, 512);
}

TEST_F(BackupLimitsTest, AVolumeWhoseNumberIsTooHighIsReadFromTheDiskAndNotFromASnapshot)
{
    SHOWS(KkBackup, KK_STATUS_SUCCESS,
          "a volume whose device number is above 127 is read from the disk and not from a "
          "snapshot");

    AddUsualDisk();
    machine.SetVolumeNumber(*machine.FindVolume(0, kNtfsStart), 128);

    ASSERT_EQ(Backup({.partitions = {3}, .usedBlocksOnly = 1, .useSnapshots = 1}), 0);

    EXPECT_EQ(result.snapshotsUsed, 0u);
    EXPECT_EQ(result.rawDiskCopies, 1u);
}

TEST_F(BackupLimitsTest, OfASpannedVolumeEveryPartitionGetsTheVolumesBeginning)
{
    SHOWS(KkBackup, KK_STATUS_SUCCESS, "of a volume with several extents every partition gets the volume's beginning");

    machine::Disk& disk = machine.AddDisk(16 * kMiB);
    disk.Gpt({.partitions = {{.start = kMiB, .length = kMiB}, {.start = 4 * kMiB, .length = kMiB}}});
    FillPattern(disk, kMiB, kMiB, 1);
    FillPattern(disk, 4 * kMiB, kMiB, 2);
    machine.HideVolume(*machine.FindVolume(0, 4 * kMiB));
    machine.FindVolume(0, kMiB)->AddExtent({machine.ShareDisk(0), 4 * kMiB, kMiB});

    ASSERT_EQ(Backup(), 0);

    EXPECT_EQ(result.liveWholeCopies, 2u);
    ExpectSameBytes(disk, kMiB, kMiB, kMiB);
    ExpectSameBytes(disk, kMiB, 4 * kMiB, kMiB);
}

TEST_F(BackupLimitsTest, WhateverAnswersLikeNtfsIsCopiedByUsedBlocks)
{
    SHOWS(KkBackup, KK_STATUS_SUCCESS,
          "a volume of another file system that answers like NTFS is copied by the clusters that it says are in use");

    constexpr uint32_t clusterBytes = 64 * kKiB;
    constexpr uint64_t clusters = 64;
    machine::Disk& disk = machine.AddDisk(16 * kMiB);
    disk.Gpt({.partitions = {{.start = kMiB, .length = clusters * clusterBytes}}});
    FillPattern(disk, kMiB, clusters * clusterBytes, 1);
    machine::Volume& volume = *machine.FindVolume(0, kMiB);
    volume.SetFileSystemName(u"ReFS");
    volume.SetNtfsData([](const machine::ControlRequest&) {
        kk::NtfsVolumeData data = {};
        data.totalClusters = clusters;
        data.bytesPerCluster = clusterBytes;
        return machine::ControlAnswer{.output = machine::BytesOf(data)};
    });
    volume.SetBitmapAnswer([](const machine::ControlRequest&) {
        machine::ControlAnswer answer{.output = machine::BytesOf(kk::VolumeBitmapHeader{0, clusters})};
        answer.output.resize(sizeof(kk::VolumeBitmapHeader) + clusters / 8);
        answer.output[sizeof(kk::VolumeBitmapHeader)] = 0b1001;
        return answer;
    });

    ASSERT_EQ(Backup({.usedBlocksOnly = 1}), 0);

    EXPECT_EQ(result.liveUsedBlockCopies, 1u);
    EXPECT_EQ(result.bytesCopied, 2 * clusterBytes);
    ExpectSameBytes(disk, kMiB, kMiB, clusterBytes);
    EXPECT_EQ(ImageBytes(kMiB + clusterBytes, 2 * clusterBytes), std::vector<uint8_t>(2 * clusterBytes));
    ExpectSameBytes(disk, kMiB + 3 * clusterBytes, kMiB + 3 * clusterBytes, clusterBytes);
}

class EditLimitsTest : public PartitionEditTest {};

TEST_F(EditLimitsTest, APartitionBetweenLogicalDrivesTakesTheSectorsThatLinkThem)
{
    SHOWS(KkCreatePartition, KK_STATUS_SUCCESS,
          "a gap between logical drives counts as free, with the sectors that "
          "link them");

    machine::Disk& disk = AddBareDisk();
    disk.Mbr({.logicals = {{4 * kMiB, 4 * kMiB}, {16 * kMiB, 4 * kMiB}}});
    const machine::MbrEntryRecord container = ReadMbr(disk).entries[0];

    ASSERT_EQ(Create(8 * kMiB, 8 * kMiB), 0);

    const machine::MbrEntryRecord added = ReadMbr(disk).entries[1];
    EXPECT_EQ(created, 8 * kMiB);
    EXPECT_GT(added.firstSector, container.firstSector);
    EXPECT_LT(added.firstSector + added.sectorCount, container.firstSector + container.sectorCount);
    constexpr uint64_t link = 15 * kMiB;
    EXPECT_EQ(disk.ReadBytes(link + 510, 2), (std::vector<uint8_t>{0x55, 0xAA}));
    EXPECT_GE((uint64_t{added.firstSector} + added.sectorCount) * 512, link + 512);
}

TEST_F(EditLimitsTest, TheSecondArrayOfALongTableIsNotSpared)
{
    SHOWS(KkCreatePartition, KK_STATUS_SUCCESS,
          "only the last 34 sectors are spared, though the second array of a "
          "long GPT begins earlier");

    machine::Disk& disk = AddBareDisk();
    disk.Gpt({.entryCount = 1024});
    const uint64_t secondArray = ReadGpt(disk, kDiskSize / 512 - 1).header.entriesLba * 512;

    EXPECT_EQ(Create(kMiB, kDiskSize, kDiskSize - kMiB - 34 * 512), 0);

    ASSERT_EQ(Partitions().size(), 1u);
    EXPECT_GT(Partitions()[0].start + Partitions()[0].length, secondArray);
}

TEST_F(EditLimitsTest, OverTheSecondArrayOfALongTableItIsTheDriverThatLetsNoPartitionGrow)
{
    SHOWS(KkExtendPartition, KK_STATUS_INVALID_PARAMETER,
          "the driver refuses to let a partition grow over the second array of a long GPT, which a size of 0 asks for");
    SHOWS(KkExtendPartition, KK_STATUS_BUFFER_TOO_SMALL,
          "of a disk with a long GPT too, only the last 34 sectors are spared");
    SHOWS(KkExtendPartition, KK_STATUS_SUCCESS, "a partition grows to the last usable sector of a long GPT");

    machine::Disk& disk = AddBareDisk();
    disk.Gpt({.partitions = {{.start = kMiB, .length = kMiB}}, .entryCount = 1024});
    const uint64_t room = kDiskSize - 34 * 512 - kMiB;
    const uint64_t usable = (ReadGpt(disk, 1).header.lastUsableLba + 1) * 512 - kMiB;
    ASSERT_LT(usable, room);
    EXPECT_EQ(Extend(kMiB, room + 1), KK_STATUS_BUFFER_TOO_SMALL);

    EXPECT_EQ(Extend(kMiB, 0), KK_STATUS_INVALID_PARAMETER);
    EXPECT_THAT(SentWith(0x7C0D0), ElementsAre(1, room - kMiB)) << "the driver was asked";
    EXPECT_THAT(written, testing::IsEmpty());

    EXPECT_EQ(Extend(kMiB, usable), 0);
    EXPECT_THAT(Partitions(), ElementsAre(Place{kMiB, usable}));
}

TEST_F(EditLimitsTest, AVolumeThatHasNotArrivedYetIsNotFoundByTheNextCall)
{
    SHOWS(KkSetDriveLetter, KK_STATUS_INVALID_PARAMETER, "a volume that has not arrived yet is not found");
    SHOWS(KkFormatPartition, KK_STATUS_INVALID_PARAMETER, "a volume that has not arrived yet is not found");
    SHOWS(KkSetDriveLetter, KK_STATUS_SUCCESS, "the call succeeds when it is repeated until the volume is there");

    AddDisk(kSmallGpt, {});
    machine.switches.volumeArrivalDelay = 200;
    ASSERT_EQ(Create(kMiB, 8 * kMiB), 0);

    EXPECT_EQ(api.setDriveLetter(0, kMiB, u'X'), KK_STATUS_INVALID_PARAMETER);
    EXPECT_EQ(api.formatPartition(0, kMiB, nullptr, nullptr, 1), KK_STATUS_INVALID_PARAMETER);

    int32_t status = KK_STATUS_INVALID_PARAMETER;
    for (int attempt = 0; attempt < 10 && status == KK_STATUS_INVALID_PARAMETER; ++attempt) {
        status = api.setDriveLetter(0, kMiB, u'X');
    }
    EXPECT_EQ(status, 0);
}

class RestoreLimitsTest : public RestoreTest {
protected:
    static constexpr uint64_t kSize = 32 * kMiB;
    static constexpr uint64_t kStart = 4 * kMiB;
    static constexpr uint64_t kLength = 16 * kMiB;
};

TEST_F(RestoreLimitsTest, AVolumeWithASmallerFileSystemDoesNotTakeWhatReachesBeyondIt)
{
    SHOWS(KkRestoreToVolume, KK_STATUS_SUCCESS, "a volume without a file system takes all of a partition");
    SHOWS(KkRestoreToVolume, KK_STATUS_UNSUCCESSFUL,
          "a volume whose file system is smaller than the partition does "
          "not take what reaches beyond it");

    MakeImage(kSmallGpt, {{kStart, kLength}}, kSize);
    AddTarget(kSmallGpt, {{kStart, kLength}}, kSize);
    machine.switches.ntfsBoundary = true;
    EXPECT_EQ(RestoreToVolume(1, VolumeAt(kStart)), 0) << "an unformatted one does";

    AddTarget(kSmallGpt, {{kStart, kLength}}, kSize).Format(kStart, kLength, machine::FileSystem::Ntfs);
    EXPECT_EQ(RestoreToVolume(1, VolumeAt(kStart)), KK_STATUS_UNSUCCESSFUL);
    ExpectRestored(kStart, kStart, kTransfer);
}

TEST_F(RestoreLimitsTest, OnALiveDiskTheDataIsRefusedAfterTheTableWasReplaced)
{
    SHOWS(KkRestorePartitions, 0xC0000022,
          "on a disk with mounted volumes the data is refused after the table was "
          "replaced");

    AddTarget(kSmallGpt, {{kStart, kLength}}, kSize).Format(kStart, kLength, machine::FileSystem::Fat16);
    MakeImage(kSmallGpt, {{2 * kStart, kMiB}}, kSize);
    machine.Strict();

    EXPECT_EQ(RestorePartitions({}, 1), machine::kAccessDenied);

    EXPECT_THAT(ReadSlots(Target(), kSmallGpt), ElementsAre(Place{2 * kStart, kMiB}));
}

TEST_F(RestoreLimitsTest, PartitionsBeyondThe128thAreRestoredButGetNoEntry)
{
    SHOWS(KkRestorePartitions, KK_STATUS_SUCCESS,
          "partitions beyond the 128th are restored and get no entry in the "
          "new table");

    constexpr uint64_t step = 128 * 1024;
    machine::GptTable table = {.entryCount = 256};
    for (uint64_t i = 0; i < 129; ++i) {
        table.partitions.push_back({.start = kMiB + i * step, .length = 4096});
    }
    MakeImage(kSmallGpt, table, kSize);
    AddTarget(kSize);

    EXPECT_EQ(RestorePartitions({}, 1), 0);

    EXPECT_EQ(ReadSlots(Target(), kSmallGpt).size(), 128u);
    ExpectRestored(kMiB + 128 * step, kMiB + 128 * step, 4096);
}

TEST_F(RestoreLimitsTest, BeyondTwoTebibytesAnMbrPointsElsewhereThanTheDataGoes)
{
    SHOWS(KkRestoreToFreeSpace, KK_STATUS_SUCCESS,
          "beyond 2 TiB the data goes where it was meant to, and the MBR "
          "points elsewhere");

    constexpr uint64_t twoTebibytes = uint64_t{1} << 41;
    MakeImage(kSmallGpt, {{kStart, kMiB}}, kSize);
    machine.AddDisk(2 * twoTebibytes, {.number = 0}).Mbr({});

    EXPECT_EQ(RestoreToFreeSpace(1, twoTebibytes + kStart, kMiB), 0);

    EXPECT_THAT(DriverKnows(), ElementsAre(Place{kStart, kMiB}));
    ExpectRestored(kStart, twoTebibytes + kStart, kMiB);
}

TEST_F(RestoreLimitsTest, WhatOnlyTheParentOfAnImageHoldsCountsAsZeros)
{
    SHOWS(KkRestorePartitions, KK_STATUS_SUCCESS,
          "blocks that only the parent of a differencing image holds count as "
          "zeros");

    constexpr uint32_t blockBytes = 2 << 20;
    constexpr uint64_t hasParent = uint64_t{2} << 32;
    machine::MemoryStorage bytes(kSize);
    machine::WriteGptTable(bytes, 512, {.partitions = {{.start = kStart, .length = 2 * blockBytes}}});
    VhdxBuilder(kSize)
        .Data(bytes)
        .Data(kStart, std::vector<uint8_t>(2 * blockBytes, 7))
        .Item({vhdx::kFileParameters, vhdx::LittleEndian(blockBytes | hasParent, 8)})
        .State(kStart / blockBytes, 0)
        .State(kStart / blockBytes + 1, 7)
        .Save(folder / "image.vhdx");
    AddTarget(kSize);

    EXPECT_EQ(RestorePartitions(), 0);

    ExpectOld(kStart, 2 * blockBytes);
}

class ImageLimitsTest : public ImageMountTest {};

TEST_F(ImageLimitsTest, BesideADiskOfTheSameIdentifierAnImageHasNoVolumes)
{
    SHOWS(KkMountImage, KK_STATUS_SUCCESS,
          "beside a disk of the same identifier the mounted image has partitions and "
          "no volumes");
    SHOWS(KkListPartitions, KK_STATUS_SUCCESS, "partitions of a disk that is offline are listed without volumes");

    machine.switches.diskIdentityCollisions = true;
    const machine::GptTable table = {.partitions = {{.start = kMiB, .length = 2 * kMiB}}};
    machine.FindDisk(0)->Gpt(table);
    machine::WriteGptTable(*images->ImageBytes(ImagePath()), 512, table);

    ASSERT_EQ(Mount(), 0);

    KkPartitionInfo partition = {};
    uint32_t count = 0;
    EXPECT_EQ(api.listPartitions(diskNumber, &partition, 1, &count), 0);
    EXPECT_EQ(count, 1u);
    EXPECT_EQ(char16_t{partition.volumePath[0]}, u'\0');
    EXPECT_EQ(char16_t{partition.deviceName[0]}, u'\0');
}

TEST_F(ImageLimitsTest, AnImageThatIsMountedForWritingCannotBeInspected)
{
    SHOWS(KkInspectImage, 0xC0000043, "the image is mounted for writing: the refusal to open it is passed on");

    machine::TrackedStorage& bytes = *images->ImageBytes(ImagePath());
    machine::WriteGptTable(bytes, 512, {.partitions = {{.start = kMiB, .length = 2 * kMiB}}});
    VhdxBuilder(16 * kMiB).Data(bytes).Save(ImagePath());
    uint32_t count = 0;
    const auto inspect = [&] {
        return api.inspectImage(WindowsPath(ImagePath()).c_str(), nullptr, nullptr, 0, &count);
    };
    ASSERT_EQ(inspect(), 0);
    ASSERT_EQ(Mount(), 0);

    EXPECT_EQ(inspect(), Status(0xC0000043));

    ASSERT_EQ(Unmount(), 0);
    EXPECT_EQ(inspect(), 0);
}

class RecoverLimitsTest : public RecoverTest {};

TEST_F(RecoverLimitsTest, AnOverlayThatTheSystemDoesNotKnowByItsNameStaysAttached)
{
    SHOWS(KkRecoverShrinkToFit, KK_STATUS_SUCCESS,
          "an overlay that the system does not know by its name stays "
          "attached, with its file, after the data arrived");

    machine.switches.virtualDisksByExtension = true;
    AddTarget(4 * kMiB);
    MakeImage(8 * kMiB);

    EXPECT_EQ(api.recoverShrinkToFit(WindowsPath(imagePath).c_str(), 1, 0, kTargetStart), 0);

    EXPECT_TRUE(TargetHolds(1));
    EXPECT_THAT(virtualDisks.AttachedImages(), ElementsAre(OverlayPath()));
    EXPECT_TRUE(std::filesystem::exists(OverlayPath()));
}

}  // namespace
