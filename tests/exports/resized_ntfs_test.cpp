#include <fstream>
#include <random>

#include "exports/support/partition_edit_test.h"
#include "exports/support/table_judges.h"

// NTFS volumes with files in them, before and after their partition changes its size.

namespace {

constexpr uint64_t kStart = 4 << 20;
constexpr int kFiles = 3;

class ResizedNtfsTest : public PartitionEditTest {
protected:
    ResizedNtfsTest()
    {
        std::mt19937 random(11);
        for (int i = 0; i < kFiles; ++i) {
            std::string content(static_cast<size_t>(i + 1) * 700 * kKiB + 13, '\0');
            std::ranges::generate(content, [&random] { return static_cast<char>(random()); });
            std::ofstream(sources[i].Path(), std::ios::binary) << content;
            options.files.emplace_back(sources[i].Path(), "file" + std::to_string(i));
        }
    }

    /// The disk has one partition, and a file system that fills it.
    void AddVolume(const DiskKind& kind, uint64_t length)
    {
        AddDisk(kind, {{kStart, length}}).Format(kStart, length, machine::FileSystem::Ntfs, options);
        ExpectASoundVolume(kind, length);
    }

    /// Table and file system are in order, the latter `length` long, and every file is as it was.
    void ExpectASoundVolume(const DiskKind& kind, uint64_t length)
    {
        EXPECT_EQ(ComplaintAboutTable(TheDisk(), kind), "");
        EXPECT_EQ(ComplaintAboutNtfs(TheDisk(), {kStart, length}), "");
        const machine::TemporaryFile volume;
        TheDisk().ExportFile(kStart, length, volume.Path());
        for (int i = 0; i < kFiles; ++i) {
            Shell("ntfscat '" + volume.Path() + "' file" + std::to_string(i) + " | cmp - '" + sources[i].Path() + "'");
        }
    }

    machine::TemporaryFile sources[kFiles];
    machine::FormatOptions options;
};

TEST_F(ResizedNtfsTest, TheFileSystemFillsAnExtendedPartition)
{
    SHOWS(KkExtendPartition, KK_STATUS_SUCCESS, "NTFS grows to fill the extended partition; files are kept");

    for (const DiskKind& kind : kDiskKinds) {
        SCOPED_TRACE(kind);
        AddVolume(kind, 24 * kMiB);

        ASSERT_EQ(Extend(kStart, 40 * kMiB), 0);

        EXPECT_EQ(Partitions()[0].length, 40 * kMiB);
        ExpectASoundVolume(kind, 40 * kMiB);
    }
}

TEST_F(ResizedNtfsTest, TheFileSystemEndsWithAShrunkPartition)
{
    SHOWS(KkShrinkPartition, KK_STATUS_SUCCESS, "NTFS ends with the shrunk partition; files are kept");

    for (const DiskKind& kind : kDiskKinds) {
        SCOPED_TRACE(kind);
        AddVolume(kind, 40 * kMiB);

        ASSERT_EQ(Shrink(kStart, 20 * kMiB), 0);

        EXPECT_EQ(Partitions()[0].length, 20 * kMiB);
        ExpectASoundVolume(kind, 20 * kMiB);
    }
}

TEST_F(ResizedNtfsTest, ThereAndBackAgain)
{
    SHOWS(KkExtendPartition, KK_STATUS_SUCCESS,
          "a partition that is extended and shrunk back holds a sound file system");
    SHOWS(KkShrinkPartition, KK_STATUS_SUCCESS,
          "a partition that is extended and shrunk back holds a sound file system");

    AddVolume(kSmallGpt, 24 * kMiB);

    ASSERT_EQ(Extend(kStart, 0), 0);
    ASSERT_EQ(Shrink(kStart, 24 * kMiB), 0);

    EXPECT_EQ(Partitions()[0].length, 24 * kMiB);
    ExpectASoundVolume(kSmallGpt, 24 * kMiB);
}

TEST_F(ResizedNtfsTest, AShrinkByOneMiBLeavesAPartitionLongerThanItsFileSystem)
{
    SHOWS(KkShrinkPartition, KK_STATUS_SUCCESS,
          "a shrink by 1 MiB leaves a partition longer than its sound file system");
    SHOWS(KkExtendPartition, KK_STATUS_SUCCESS, "a partition longer than its file system can be extended with it");

    AddVolume(kSmallMbr, 24 * kMiB);

    ASSERT_EQ(Shrink(kStart, 23 * kMiB), 0);

    EXPECT_EQ(Partitions()[0].length, 24 * kMiB);
    ExpectASoundVolume(kSmallMbr, 23 * kMiB);
    ASSERT_EQ(Extend(kStart, 25 * kMiB), 0);
    ExpectASoundVolume(kSmallMbr, 25 * kMiB);
}

TEST_F(ResizedNtfsTest, WhatLiesBehindTheNewEndStopsASystemThatMovesNothing)
{
    SHOWS(KkShrinkPartition, 0xC0000021, "data lies behind the new end, and the system moves nothing; nothing changes");

    machine.switches.shrinkMovesNothing = true;
    AddVolume(kSmallGpt, 24 * kMiB);
    const DiskBytes before(TheDisk());

    EXPECT_EQ(Shrink(kStart, 2 * kMiB), Status(0xC0000021));

    before.ExpectUnchanged();
}

TEST_F(ResizedNtfsTest, ATargetBelowTheContentsIsRefusedByTheFileSystem)
{
    SHOWS(KkShrinkPartition, "a size below what the files need is refused by the file system; nothing changes");

    AddVolume(kSmallGpt, 24 * kMiB);
    const DiskBytes before(TheDisk());

    EXPECT_LT(Shrink(kStart, 2 * kMiB), 0);

    before.ExpectUnchanged();
}

TEST_F(ResizedNtfsTest, AFileSystemThatDidNotGrowStaysSoundInItsLongerPartition)
{
    SHOWS(KkExtendPartition, KK_STATUS_SUCCESS, "a file system that did not grow stays sound in its longer partition");

    AddVolume(kLargeGpt, 24 * kMiB);
    Refuse(0x900F0, 0xC0000022);

    EXPECT_EQ(Extend(kStart, 40 * kMiB), 0);

    EXPECT_EQ(Partitions()[0].length, 40 * kMiB);
    ExpectASoundVolume(kLargeGpt, 24 * kMiB);
}

TEST_F(ResizedNtfsTest, AFailedTableEditLeavesASoundFileSystemAndCanBeMadeUpFor)
{
    SHOWS(KkShrinkPartition, 0xC0000185, "a failing edit of the table leaves a sound, shrunk file system");
    SHOWS(KkShrinkPartition, KK_STATUS_SUCCESS,
          "after a failing edit of the table the call made again does what is left");

    AddVolume(kSmallGpt, 24 * kMiB);
    machine.faults.Fail({.kind = machine::CallKind::WriteFile, .object = "PhysicalDrive0"}, 1, 0xC0000185);

    EXPECT_EQ(Shrink(kStart, 12 * kMiB), Status(0xC0000185));
    EXPECT_EQ(Partitions()[0].length, 24 * kMiB);
    ExpectASoundVolume(kSmallGpt, 12 * kMiB);

    EXPECT_EQ(Shrink(kStart, 12 * kMiB), 0);
    EXPECT_EQ(Partitions()[0].length, 12 * kMiB);
    ExpectASoundVolume(kSmallGpt, 12 * kMiB);
}

TEST_F(ResizedNtfsTest, ADeletedVolumesDataStays)
{
    SHOWS(KkDeletePartition, KK_STATUS_SUCCESS, "the data of a deleted partition stays");
    SHOWS(KkCreatePartition, KK_STATUS_SUCCESS, "a partition created where another one was shows its data again");

    for (const DiskKind& kind : kDiskKinds) {
        AddVolume(kind, 24 * kMiB);

        ASSERT_EQ(Delete(kStart), 0);
        ASSERT_EQ(Create(kStart, 24 * kMiB), 0);

        ExpectASoundVolume(kind, 24 * kMiB);
    }
}

TEST_F(ResizedNtfsTest, ASystemThatProtectsMountedSectorsLetsItAllHappen)
{
    SHOWS(KkExtendPartition, KK_STATUS_SUCCESS, "it works where the system protects sectors of mounted volumes");
    SHOWS(KkShrinkPartition, KK_STATUS_SUCCESS, "it works where the system protects sectors of mounted volumes");
    SHOWS(KkDeletePartition, KK_STATUS_SUCCESS, "it works where the system protects sectors of mounted volumes");

    machine.Strict();
    machine.switches.volumeArrivalDelay = 0;
    machine.switches.shrinkMovesNothing = false;
    AddVolume(kSmallGpt, 24 * kMiB);

    EXPECT_EQ(Extend(kStart, 40 * kMiB), 0);
    ExpectASoundVolume(kSmallGpt, 40 * kMiB);
    EXPECT_EQ(Shrink(kStart, 16 * kMiB), 0);
    ExpectASoundVolume(kSmallGpt, 16 * kMiB);
    EXPECT_EQ(Delete(kStart), 0);
    EXPECT_TRUE(Partitions().empty());
}

}  // namespace
