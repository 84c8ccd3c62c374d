// Real formats, and what has to be there for one.

#include "exports/support/format_test.h"

namespace {

using machine::FileSystem;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class FormatPartitionTest : public FormatTest {
protected:
    /// What a program of the host says about the partition, whose file name follows `command`.
    std::string Judge(const std::string& command)
    {
        const std::filesystem::path copy = folder / "partition";
        std::filesystem::remove(copy);
        disk.ExportFile(kStart, kLength, copy.string());
        return Shell("LC_ALL=C.UTF-8 " + command + " " + copy.string());
    }
};

TEST_F(FormatPartitionTest, MakesNtfsThatOtherToolsAccept)
{
    SHOWS(KkFormatPartition, KK_STATUS_SUCCESS, "NTFS with its label, as judged by NTFS tools");

    EXPECT_EQ(Format({.label = u"Daten-\u00DCbersicht"}), 0);

    EXPECT_THAT(Judge("ntfsresize -i -f"), HasSubstr("You might resize at"));
    EXPECT_THAT(Judge("ntfsfix -n"), HasSubstr("was processed successfully"));
    EXPECT_EQ(Judge("ntfslabel"), "Daten-\u00DCbersicht\n");
}

TEST_F(FormatPartitionTest, MakesFat32ThatOtherToolsAccept)
{
    SHOWS(KkFormatPartition, KK_STATUS_SUCCESS, "FAT32 with its label, as judged by FAT tools");

    EXPECT_EQ(Format({.fileSystem = u"FAT32", .label = u"Boot"}), 0);

    EXPECT_EQ(volume.RecognisedFileSystem(), FileSystem::Fat32);
    EXPECT_THAT(Judge("fsck.fat -n"), HasSubstr(" 1 files, 1/"));  // the label is an entry of the root
    EXPECT_EQ(Judge("fatlabel"), "BOOT\n");
}

TEST_F(FormatPartitionTest, MakesExfatThatOtherToolsAccept)
{
    SHOWS(KkFormatPartition, KK_STATUS_SUCCESS, "exFAT with its label, as judged by exFAT tools");

    EXPECT_EQ(Format({.fileSystem = u"exFAT", .label = u"B\u00FCcher"}), 0);

    EXPECT_THAT(Judge("fsck.exfat -n"), HasSubstr("clean"));
    EXPECT_THAT(Judge("exfatlabel"), HasSubstr("label: B\u00FCcher"));
}

TEST_F(FormatPartitionTest, WritesNothingOutsideThePartition)
{
    SHOWS(KkFormatPartition, KK_STATUS_SUCCESS, "nothing is written outside the partition");

    const std::vector<uint8_t> before = disk.ReadBytes(0, kStart);

    EXPECT_EQ(Format({.quick = 0}), 0);

    EXPECT_TRUE(disk.ReadBytes(0, kStart) == before);
    EXPECT_EQ(disk.ReadBytes(kStart + kLength, kMiB), std::vector<uint8_t>(kMiB));
}

TEST_F(FormatPartitionTest, OnlyAFullFormatZeroesWhatTheFileSystemDoesNotUse)
{
    SHOWS(KkFormatPartition, KK_STATUS_SUCCESS,
          "a quick format keeps data where the file system has none, a full one zeroes it");

    const uint64_t unused = kStart + kLength - 64 * kKiB;
    const std::vector<uint8_t> mark(512, 0xA5);
    disk.WriteBytes(unused, mark);

    EXPECT_EQ(Format({.fileSystem = u"FAT", .quick = INT32_MIN}), 0);
    EXPECT_EQ(disk.ReadBytes(unused, 512), mark);
    EXPECT_EQ(Format({.fileSystem = u"FAT", .quick = 0}), 0);
    EXPECT_EQ(disk.ReadBytes(unused, 512), std::vector<uint8_t>(512));
}

TEST_F(FormatPartitionTest, FailsWhenTheCommandDoes)
{
    SHOWS(KkFormatPartition, KK_STATUS_UNSUCCESSFUL,
          "the command failed: an unknown file system, a label of two words, a label too long");

    EXPECT_EQ(Format({.fileSystem = u"ext4"}), KK_STATUS_UNSUCCESSFUL);
    EXPECT_EQ(Format({.label = u"Two words"}), KK_STATUS_UNSUCCESSFUL) << "they arrive as two arguments";
    EXPECT_EQ(Format({.fileSystem = u"FAT32", .label = u"TWELVELETTER"}), KK_STATUS_UNSUCCESSFUL);

    EXPECT_EQ(volume.RecognisedFileSystem(), FileSystem::None);
}

TEST_F(FormatPartitionTest, GoesOnInTheBackgroundAfterTwoMinutes)
{
    SHOWS(KkFormatPartition, KK_STATUS_UNSUCCESSFUL,
          "the command did not end within two minutes; it goes on in the background");

    machine.processes.formatDuration = 121 * kSecond;

    EXPECT_EQ(Format(), KK_STATUS_UNSUCCESSFUL);

    EXPECT_EQ(volume.RecognisedFileSystem(), FileSystem::None);
    machine.clock.Advance(kSecond);
    machine.processes.CatchUp();
    EXPECT_EQ(volume.RecognisedFileSystem(), FileSystem::Ntfs);
    EXPECT_EQ(volume.Letter(), u'D');
}

TEST_F(FormatPartitionTest, RefusesAPartitionWithoutAVolumeBeforeItLooksForALetter)
{
    SHOWS(KkFormatPartition, KK_STATUS_INVALID_PARAMETER,
          "no partition starts there, or it has no volume; no letter is looked for");

    for (const int32_t diskNumber : {1, -1}) {
        EXPECT_EQ(api.formatPartition(diskNumber, kStart, nullptr, nullptr, 1), KK_STATUS_INVALID_PARAMETER);
    }
    EXPECT_EQ(api.formatPartition(0, kStart + 512, nullptr, nullptr, 1), KK_STATUS_INVALID_PARAMETER);
    machine.HideVolume(volume);
    EXPECT_EQ(Format(), KK_STATUS_INVALID_PARAMETER);

    EXPECT_EQ(machine.journal.Count({.object = "MountPointManager"}), 0u);
    EXPECT_THAT(Kernel32Calls(), IsEmpty());
}

TEST_F(FormatPartitionTest, WithoutTheSystemLibraryLooksAtNothing)
{
    SHOWS(KkFormatPartition, KK_STATUS_NOT_FOUND, "without kernel32.dll nothing is looked at");

    machine.modules.Remove(u"kernel32.dll");

    EXPECT_EQ(Format(), KK_STATUS_NOT_FOUND);
    EXPECT_EQ(api.formatPartition(7, 0, nullptr, nullptr, 1), KK_STATUS_NOT_FOUND);

    EXPECT_THAT(Steps(), ElementsAre("LdrLoadDll kernel32.dll"));
}

TEST_F(FormatPartitionTest, FourEntriesMustBeThereBeforeAnythingIsLookedAt)
{
    SHOWS(KkFormatPartition, KK_STATUS_NOT_FOUND,
          "each of four entry points must be there: two for mount points, process start, system folder");
    SHOWS(KkFormatPartition, KK_STATUS_INVALID_PARAMETER, "with them, an absent volume is what decides");

    WithoutEachEntry([&](const std::string& entry) {
        const bool needed = entry == "SetVolumeMountPointW" || entry == "DeleteVolumeMountPointW" ||
                            entry == "CreateProcessW" || entry == "GetSystemDirectoryW";
        EXPECT_EQ(Format() == KK_STATUS_NOT_FOUND, needed);
        EXPECT_EQ(Steps().size() == 1, needed);
        EXPECT_EQ(api.formatPartition(7, 0, nullptr, nullptr, 1),
                  needed ? KK_STATUS_NOT_FOUND : KK_STATUS_INVALID_PARAMETER);
    });
}

TEST_F(FormatPartitionTest, TheDrivesMaskIsNeededForANewLetterOnly)
{
    SHOWS(KkFormatPartition, KK_STATUS_NO_MEDIA_IN_DEVICE, "a new letter needs the system's mask of drives");
    SHOWS(KkFormatPartition, KK_STATUS_SUCCESS, "a volume that has a letter does not need it");

    machine.modules.RemoveEntry(u"kernel32.dll", "GetLogicalDrives");

    EXPECT_EQ(Format(), KK_STATUS_NO_MEDIA_IN_DEVICE);
    EXPECT_THAT(Kernel32Calls(), IsEmpty());
    EXPECT_EQ(volume.Letter(), std::nullopt);

    GiveLetter(u'K');
    EXPECT_EQ(Format(), 0);
}

TEST_F(FormatPartitionTest, AWaitThatIsMissingIsLeftOut)
{
    SHOWS(KkFormatPartition, KK_STATUS_UNSUCCESSFUL,
          "without the entry point to wait, a command that is still running counts as failed");
    SHOWS(KkFormatPartition, KK_STATUS_SUCCESS,
          "without the entry point to wait, a command that has ended is a success");

    machine.modules.RemoveEntry(u"kernel32.dll", "WaitForSingleObject");

    EXPECT_EQ(Format(), KK_STATUS_UNSUCCESSFUL) << "the command runs still";
    machine.processes.formatDuration = 0;
    EXPECT_EQ(Format(), 0);
}

TEST_F(FormatPartitionTest, AMissingQuestionForTheExitCodeIsAFailureThoughTheVolumeIsFormatted)
{
    SHOWS(KkFormatPartition, KK_STATUS_UNSUCCESSFUL,
          "without the entry point for the exit code it counts as failed, though the volume is formatted");

    machine.modules.RemoveEntry(u"kernel32.dll", "GetExitCodeProcess");

    EXPECT_EQ(Format(), KK_STATUS_UNSUCCESSFUL);

    EXPECT_EQ(volume.RecognisedFileSystem(), FileSystem::Ntfs);
    EXPECT_EQ(machine.journal.Count({.name = "CloseHandle"}), 2u);
}

TEST_F(FormatPartitionTest, WithoutCloseHandleBothHandlesStayOpen)
{
    SHOWS(KkFormatPartition, KK_STATUS_SUCCESS,
          "without the entry point to close handles both of the process's stay open");

    EXPECT_EQ(RunForked([&] {
                  machine.modules.RemoveEntry(u"kernel32.dll", "CloseHandle");
                  EXPECT_EQ(Format(), 0);
                  EXPECT_EQ(machine.handles.OpenNames().size(), 2u);
                  return 0;
              }),
              0);
}

}  // namespace
