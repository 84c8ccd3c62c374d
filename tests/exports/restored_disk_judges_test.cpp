#include <algorithm>
#include <fstream>
#include <random>

#include "exports/support/restore_test.h"
#include "exports/support/table_judges.h"
#include "machine/qemu_virtual_disks.h"

// Disks with files on them are backed up into images that another program makes, and restored in every way. Programs
// that are not ours judge tables and file systems, and read every file.

namespace {

constexpr int kFiles = 3;

class RestoredDiskJudgesTest : public RestoreTest {
protected:
    static constexpr uint64_t kSize = 96 * kMiB;
    static constexpr Place kFat = {kMiB, 34 * kMiB};
    static constexpr Place kNtfs = {40 * kMiB, 20 * kMiB};
    static constexpr Place kOther = {64 * kMiB, 3 * kMiB};

    RestoredDiskJudgesTest()
    {
        machine::InstallVirtualDiskService(machine, std::make_shared<machine::QemuVirtualDisks>());
        std::mt19937 random(5);
        for (int i = 0; i < kFiles; ++i) {
            std::string content(static_cast<size_t>(i + 1) * 500 * kKiB + 13, '\0');
            std::ranges::generate(content, [&random] { return static_cast<char>(random()); });
            std::ofstream(sources[i].Path(), std::ios::binary) << content;
            files.emplace_back(sources[i].Path(), "file" + std::to_string(i));
        }
    }

    /// Disk 1 with the volumes, backed up to the image.
    void BackUp(TableKind table, uint32_t usedBlocksOnly = 1)
    {
        machine::Disk& disk = machine.AddDisk(kSize, {.number = 1});
        if (table == TableKind::Gpt) {
            disk.Gpt({.partitions = {{.start = kFat.start, .length = kFat.length, .type = machine::kEfiSystemType},
                                     {.start = kNtfs.start, .length = kNtfs.length, .name = u"Data"},
                                     {.start = kOther.start, .length = kOther.length}}});
        } else {
            disk.Mbr({.partitions = {{kFat.start, kFat.length, 0x0C},
                                     {kNtfs.start, kNtfs.length},
                                     {kOther.start, kOther.length, 0x83}}});
        }
        disk.Format(kFat.start, kFat.length, machine::FileSystem::Fat32);
        disk.Format(kNtfs.start, kNtfs.length, machine::FileSystem::Ntfs, {.label = "Data", .files = files});
        disk.WriteBytes(kOther.start, Pattern(kOther.length, 3));
        PutFilesOnFat(disk);
        ASSERT_EQ(api.backup(1, ImagePath().c_str(), nullptr, 0, usedBlocksOnly, 0, 0, nullptr, 0, 1, 0, nullptr), 0);
    }

    void PutFilesOnFat(machine::Disk& disk)
    {
        const machine::TemporaryFile volume;
        std::filesystem::remove(volume.Path());
        disk.ExportFile(kFat.start, kFat.length, volume.Path());
        for (const auto& [source, name] : files) {
            Shell("mcopy -i '" + volume.Path() + "' '" + source + "' ::" + name);
        }
        disk.ImportFile(kFat.start, volume.Path());
    }

    /// Whether the copy of an NTFS volume's boot sector came along. It lies behind the last cluster, so it belongs to
    /// none that is in use, and behind the sectors that NTFS counts.
    enum class BootCopy { Kept, LeftOut };

    /// A stretch of disk 0 is a sound NTFS volume that fills it and holds every file.
    void ExpectNtfs(const Place& place, BootCopy bootCopy)
    {
        if (bootCopy == BootCopy::LeftOut) {
            EXPECT_NE(ComplaintAboutNtfs(Target(), place), "");
            Target().WriteBytes(place.start + place.length - 512, Target().ReadBytes(place.start, 512));
        }
        EXPECT_EQ(ComplaintAboutNtfs(Target(), place), "");
        const machine::TemporaryFile volume;
        Target().ExportFile(place.start, place.length, volume.Path());
        for (const auto& [source, name] : files) {
            Shell("ntfscat '" + volume.Path() + "' " + name + " | cmp - '" + source + "'");
        }
    }

    void ExpectFat(const Place& place)
    {
        const machine::TemporaryFile volume;
        Target().ExportFile(place.start, place.length, volume.Path());
        Shell("fsck.fat -n '" + volume.Path() + "'");
        for (const auto& [source, name] : files) {
            Shell("mtype -i '" + volume.Path() + "' ::" + name + " | cmp - '" + source + "'");
        }
    }

    void ExpectOther(uint64_t start)
    {
        EXPECT_TRUE(Target().ReadBytes(start, kOther.length) == Pattern(kOther.length, 3));
    }

    /// The table of disk 0 pleases its judges, who find these partitions.
    void ExpectTable(const DiskKind& kind, const std::string& partitions)
    {
        EXPECT_EQ(ComplaintAboutTable(Target(), kind), "");
        EXPECT_EQ(PartitionsForOthers(Target(), kind), partitions);
    }

    machine::TemporaryFile sources[kFiles];
    std::vector<std::pair<std::string, std::string>> files;
};

constexpr char kPartitions[] = "1 2048 69632 c12a7328-f81f-11d2-ba4b-00a0c93ec93b\n"
                               "2 81920 40960 ebd0a0a2-b9e5-4433-87c0-68b6b72699c7 Data\n"
                               "3 131072 6144 ebd0a0a2-b9e5-4433-87c0-68b6b72699c7\n";

TEST_F(RestoredDiskJudgesTest, AWholeDiskOntoNewOnesOfManySizes)
{
    SHOWS(KkRestorePartitions, KK_STATUS_SUCCESS,
          "a whole disk onto new ones of many sizes: other tools accept table, file systems and files");
    SHOWS(KkBackup, KK_STATUS_SUCCESS, "images of clusters in use, in real VHDX files, restore to sound file systems");

    BackUp(TableKind::Gpt);
    for (const uint64_t size : {kSize, kSize + 512, 160 * kMiB, kOther.start + kOther.length + 34 * 512}) {
        machine::Disk& disk = AddTarget(size);
        // A new disk is empty: what the image leaves out is then what the file systems left out.
        disk.WriteBytes(0, std::vector<uint8_t>(size));

        ASSERT_EQ(RestorePartitions({}, 1), 0) << size;

        ExpectTable(kSmallGpt, kPartitions);
        ExpectFat(kFat);
        ExpectNtfs(kNtfs, BootCopy::LeftOut);
        ExpectOther(kOther.start);
    }
}

TEST_F(RestoredDiskJudgesTest, AWholeDiskFromAnImageOfWholePartitions)
{
    SHOWS(KkRestorePartitions, KK_STATUS_SUCCESS,
          "a whole disk from an image of whole partitions, as judged by other tools");
    SHOWS(KkBackup, KK_STATUS_SUCCESS, "images of whole partitions, in real VHDX files, restore to sound file systems");

    BackUp(TableKind::Gpt, 0);
    AddTarget(kSize);

    ASSERT_EQ(RestorePartitions({}, 1), 0);

    ExpectTable(kSmallGpt, kPartitions);
    ExpectFat(kFat);
    ExpectNtfs(kNtfs, BootCopy::Kept);
    ExpectOther(kOther.start);
}

TEST_F(RestoredDiskJudgesTest, AWholeDiskOverAnotherOnesLeftovers)
{
    SHOWS(KkRestorePartitions, KK_STATUS_SUCCESS,
          "a whole disk over the remains of another one, as judged by other tools");

    BackUp(TableKind::Gpt);
    AddTarget(kSmallMbr, {{kMiB, 80 * kMiB}}, kSize);

    ASSERT_EQ(RestorePartitions({}, 1), 0);

    ExpectTable(kSmallGpt, kPartitions);
    ExpectFat(kFat);
    ExpectNtfs(kNtfs, BootCopy::LeftOut);
    ExpectOther(kOther.start);
}

TEST_F(RestoredDiskJudgesTest, FreeSpaceOfBothKindsOfDisks)
{
    SHOWS(KkRestoreToFreeSpace, KK_STATUS_SUCCESS,
          "GPT and MBR images into free space of GPT and MBR disks, as judged by other tools");

    for (const TableKind image : {TableKind::Gpt, TableKind::Mbr}) {
        BackUp(image);
        for (const DiskKind& kind : {kSmallGpt, kSmallMbr}) {
            for (const int32_t keepSize : {0, 1}) {
                AddTarget(kind, {{40 * kMiB, 8 * kMiB}}, 128 * kMiB);

                ASSERT_EQ(RestoreToFreeSpace(2, 48 * kMiB, 30 * kMiB, keepSize), 0);
                ASSERT_EQ(RestoreToFreeSpace(3, 10 * kMiB, 4 * kMiB, keepSize), 0);

                const uint64_t length = keepSize != 0 ? kNtfs.length : 30 * kMiB;
                EXPECT_THAT(DriverKnows(), testing::Contains(Place{48 * kMiB, length}));
                EXPECT_EQ(ComplaintAboutTable(Target(), kind), "");
                ExpectNtfs({48 * kMiB, kNtfs.length}, BootCopy::LeftOut);
                ExpectOther(10 * kMiB);
            }
        }
        machine.RemoveDisk(1);
        std::filesystem::remove(folder / "image.vhdx");
    }
}

TEST_F(RestoredDiskJudgesTest, AVolumeOfTheSameSize)
{
    SHOWS(KkRestoreToVolume, KK_STATUS_SUCCESS, "NTFS and FAT onto volumes of the same size, as judged by other tools");

    BackUp(TableKind::Gpt, 0);
    AddTarget(kSmallGpt, {{kMiB, kNtfs.length}, {32 * kMiB, kFat.length}}, kSize);
    machine.Strict();

    ASSERT_EQ(RestoreToVolume(2, VolumeAt(kMiB), 1), 0);
    ASSERT_EQ(RestoreToVolume(1, VolumeAt(32 * kMiB), 1), 0);

    ExpectNtfs({kMiB, kNtfs.length}, BootCopy::Kept);
    ExpectFat({32 * kMiB, kFat.length});
}

TEST_F(RestoredDiskJudgesTest, ALargerVolumeIsFilledWhenTheFileSystemIsExtended)
{
    SHOWS(KkRestoreToVolume, KK_STATUS_SUCCESS,
          "NTFS fills a larger volume when the extension is asked for, as judged by other tools");

    BackUp(TableKind::Mbr);
    const uint64_t length = 50 * kMiB;
    AddTarget(kSmallMbr, {{8 * kMiB, length}}, kSize);

    ASSERT_EQ(RestoreToVolume(2, VolumeAt(8 * kMiB)), 0);
    ExpectNtfs({8 * kMiB, kNtfs.length}, BootCopy::LeftOut);

    ASSERT_EQ(RestoreToVolume(2, VolumeAt(8 * kMiB), 1), 0);
    ExpectNtfs({8 * kMiB, length}, BootCopy::Kept);
}

TEST_F(RestoredDiskJudgesTest, AClonedVolume)
{
    SHOWS(KkCloneVolume, KK_STATUS_SUCCESS, "NTFS cloned onto a larger volume fills it, as judged by other tools");

    BackUp(TableKind::Gpt, 0);
    const uint64_t length = 30 * kMiB;
    AddTarget(kSmallGpt, {{kMiB, kNtfs.length}, {32 * kMiB, length}}, kSize);
    ASSERT_EQ(RestoreToVolume(2, VolumeAt(kMiB)), 0);

    ASSERT_EQ(CloneVolume(VolumeAt(kMiB), VolumeAt(32 * kMiB), 1), 0);

    ExpectNtfs({kMiB, kNtfs.length}, BootCopy::Kept);
    ExpectNtfs({32 * kMiB, length}, BootCopy::Kept);
}

TEST_F(RestoredDiskJudgesTest, AClonedVolumeIsTheSameForOthers)
{
    SHOWS(KkCloneVolume, KK_STATUS_SUCCESS, "other tools find no difference between a volume and its clone");

    BackUp(TableKind::Gpt, 0);
    AddTarget(kSmallGpt, {{kMiB, kNtfs.length}, {32 * kMiB, kNtfs.length}}, kSize);
    ASSERT_EQ(RestoreToVolume(2, VolumeAt(kMiB)), 0);
    ASSERT_EQ(CloneVolume(VolumeAt(kMiB), VolumeAt(32 * kMiB)), 0);

    const machine::TemporaryFile one;
    const machine::TemporaryFile other;
    Target().ExportFile(kMiB, kNtfs.length, one.Path());
    Target().ExportFile(32 * kMiB, kNtfs.length, other.Path());
    const std::string differences =
        Shell("ntfscmp --no-progress-bar '" + one.Path() + "' '" + other.Path() + "' | grep -v '^ntfscmp v' || true");
    EXPECT_EQ(differences, "");
    ExpectNtfs({32 * kMiB, kNtfs.length}, BootCopy::LeftOut);
}

}  // namespace
