#include <algorithm>
#include <fstream>
#include <random>

#include "exports/support/export_test.h"
#include "machine/qemu_virtual_disks.h"
#include "support/ntfs_judges.h"

// NTFS volumes with files in them, backed up into real images and recovered into partitions of other lengths.

namespace {

constexpr int kFiles = 3;

class RecoveredNtfsTest : public ExportTest {
protected:
    static constexpr uint64_t kSourceStart = kMiB;
    static constexpr uint64_t kTargetStart = 3 * kMiB;

    RecoveredNtfsTest()
    {
        std::mt19937 random(7);
        for (int i = 0; i < kFiles; ++i) {
            std::string content(static_cast<size_t>(i + 1) * 600 * kKiB + 17, '\0');
            std::ranges::generate(content, [&random] { return static_cast<char>(random()); });
            std::ofstream(sources[i].Path(), std::ios::binary) << content;
            format.files.emplace_back(sources[i].Path(), "file" + std::to_string(i));
        }
    }

    /// Backs a volume of that length up, and takes its disk away.
    void MakeImage(uint64_t length)
    {
        machine.AddDisk(length + 4 * kMiB, {.number = 0})
            .Gpt({.partitions = {{.start = kSourceStart, .length = length}}})
            .Format(kSourceStart, length, machine::FileSystem::Ntfs, format);
        ASSERT_EQ(api.backup(0, WindowsPath(Image()).c_str(), nullptr, 0, 1, 0, 0, nullptr, 0, 1, 0, nullptr), 0);
        machine.RemoveDisk(0);
    }
    void AddTarget(uint64_t length)
    {
        machine.AddDisk(length + 6 * kMiB, {.number = 0})
            .Gpt({.partitions = {{.start = kTargetStart, .length = length}}});
    }

    int32_t Recover()
    {
        const std::string before = Shell("sha256sum '" + Image().string() + "'");
        const int32_t status = api.recoverShrinkToFit(WindowsPath(Image()).c_str(), 1, 0, kTargetStart);
        EXPECT_EQ(Shell("sha256sum '" + Image().string() + "'"), before) << "the image is bit for bit what it was";
        EXPECT_TRUE(virtualDisks.AttachedImages().empty());
        EXPECT_EQ(Shell("ls '" + folder.Path().string() + "'"), "image.vhdx\nimage.vhdx.json\n");
        EXPECT_EQ(machine.Disks().size(), 1u);
        return status;
    }

    /// A sound file system fills the target, and every file is as it was.
    void ExpectRecovered(uint64_t length)
    {
        const machine::TemporaryFile volume;
        machine.FindDisk(0)->ExportFile(kTargetStart, length, volume.Path());
        // A clone ends before the copy of the boot sector, which only growing writes anew. A file system that fills its
        // partition but for less than a cluster is asked to grow and cannot.
        const std::string complaint = ComplaintAboutNtfs(volume.Path());
        const std::vector<machine::CallRecord> extensions = machine.journal.FindAll({.code = 0x900F0});
        const bool hasGrown =
            std::ranges::any_of(extensions, [](const machine::CallRecord& call) { return call.result == 0; });
        EXPECT_TRUE(complaint.empty() ||
                    (!hasGrown && complaint.find("alternate boot sector... BAD") != complaint.npos))
            << complaint;
        for (int i = 0; i < kFiles; ++i) {
            Shell("ntfscat '" + volume.Path() + "' file" + std::to_string(i) + " | cmp - '" + sources[i].Path() + "'");
        }
    }

    std::filesystem::path Image() const { return folder / "image.vhdx"; }

    TemporaryFolder folder;
    machine::VirtualDiskService& virtualDisks =
        machine::InstallVirtualDiskService(machine, std::make_shared<machine::QemuVirtualDisks>());
    machine::TemporaryFile sources[kFiles];
    machine::FormatOptions format;
};

TEST_F(RecoveredNtfsTest, ALargerVolumeIsRecoveredIntoASmallerPartition)
{
    SHOWS(KkRecoverShrinkToFit, KK_STATUS_SUCCESS,
          "a larger NTFS volume is recovered into a smaller partition, sound and with its files");

    MakeImage(40 * kMiB);
    AddTarget(16 * kMiB);

    ASSERT_EQ(Recover(), 0);

    ExpectRecovered(16 * kMiB);
}

TEST_F(RecoveredNtfsTest, AVolumeJustTooLargeIsRecoveredToo)
{
    SHOWS(KkRecoverShrinkToFit, KK_STATUS_SUCCESS, "a volume just too large is recovered too");

    MakeImage(16 * kMiB + 512);
    AddTarget(16 * kMiB);

    ASSERT_EQ(Recover(), 0);

    ExpectRecovered(16 * kMiB);
}

TEST_F(RecoveredNtfsTest, AShrunkVolumeGrowsAgainUntilItFillsALargeTarget)
{
    SHOWS(KkRecoverShrinkToFit, KK_STATUS_SUCCESS, "a shrunk volume grows again to fill a target above 128 MiB");

    MakeImage(160 * kMiB);
    AddTarget(136 * kMiB);

    ASSERT_EQ(Recover(), 0);

    EXPECT_EQ(machine.journal.Count({.code = 0x900F0}), 1u);
    ExpectRecovered(136 * kMiB);
}

TEST_F(RecoveredNtfsTest, ASmallerVolumeGrowsUntilItFillsTheTarget)
{
    SHOWS(KkRecoverShrinkToFit, KK_STATUS_SUCCESS, "a smaller volume grows to fill the target, and is not shrunk");

    MakeImage(16 * kMiB);
    AddTarget(24 * kMiB);

    ASSERT_EQ(Recover(), 0);

    EXPECT_EQ(machine.journal.Count({.code = 0x901B0}), 0u);
    ExpectRecovered(24 * kMiB);
}

TEST_F(RecoveredNtfsTest, ASystemThatProtectsMountedSectorsLetsItHappen)
{
    SHOWS(KkRecoverShrinkToFit, KK_STATUS_SUCCESS, "it works where the system protects sectors of mounted volumes");

    machine.Strict();
    machine.switches.volumeArrivalDelay = 0;
    machine.switches.shrinkMovesNothing = false;
    machine.switches.diskIdentityCollisions = false;
    MakeImage(40 * kMiB);
    AddTarget(16 * kMiB);

    ASSERT_EQ(Recover(), 0);

    ExpectRecovered(16 * kMiB);
}

TEST_F(RecoveredNtfsTest, ContentsThatDoNotFitAreNotRecovered)
{
    SHOWS(KkRecoverShrinkToFit, "contents that do not fit are not recovered; the target is untouched");

    MakeImage(24 * kMiB);
    AddTarget(3 * kMiB);

    EXPECT_LT(Recover(), 0);

    EXPECT_EQ(machine.FindDisk(0)->ReadBytes(kTargetStart, 3 * kMiB), std::vector<uint8_t>(3 * kMiB));
}

TEST_F(RecoveredNtfsTest, EveryStepThatFailsLeavesImageAndFolderAsTheyWere)
{
    SHOWS(KkRecoverShrinkToFit, KK_STATUS_SUCCESS,
          "after steps that failed, image and folder are as they were, and the next run succeeds");

    MakeImage(24 * kMiB);
    AddTarget(12 * kMiB);
    const machine::CallPattern steps[] = {{.name = "CreateVirtualDisk"},
                                          {.name = "AttachVirtualDisk"},
                                          {.name = "GetVirtualDiskPhysicalPath"},
                                          {.code = 0x901B0},
                                          {.kind = machine::CallKind::WriteFile}};
    for (const machine::CallPattern& step : steps) {
        machine.faults.Clear();
        machine.faults.Fail(step, 1, 0xC0000022);

        EXPECT_LT(Recover(), 0) << step.name << step.code.value_or(0);
    }
    machine.faults.Clear();
    EXPECT_EQ(Recover(), 0);
    ExpectRecovered(12 * kMiB);
}

}  // namespace
