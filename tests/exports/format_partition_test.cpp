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
    EXPECT_EQ(Format({.label = u"Daten-\u00DCbersicht"}), 0);

    EXPECT_THAT(Judge("ntfsresize -i -f"), HasSubstr("You might resize at"));
    EXPECT_THAT(Judge("ntfsfix -n"), HasSubstr("was processed successfully"));
    EXPECT_EQ(Judge("ntfslabel"), "Daten-\u00DCbersicht\n");
}

TEST_F(FormatPartitionTest, MakesFat32ThatOtherToolsAccept)
{
    EXPECT_EQ(Format({.fileSystem = u"FAT32", .label = u"Boot"}), 0);

    EXPECT_EQ(volume.RecognisedFileSystem(), FileSystem::Fat32);
    EXPECT_THAT(Judge("fsck.fat -n"), HasSubstr(" 1 files, 1/"));  // the label is an entry of the root
    EXPECT_EQ(Judge("fatlabel"), "BOOT\n");
}

TEST_F(FormatPartitionTest, MakesExfatThatOtherToolsAccept)
{
    EXPECT_EQ(Format({.fileSystem = u"exFAT", .label = u"B\u00FCcher"}), 0);

    EXPECT_THAT(Judge("fsck.exfat -n"), HasSubstr("clean"));
    EXPECT_THAT(Judge("exfatlabel"), HasSubstr("label: B\u00FCcher"));
}

TEST_F(FormatPartitionTest, WritesNothingOutsideThePartition)
{
    const std::vector<uint8_t> before = disk.ReadBytes(0, kStart);

    EXPECT_EQ(Format({.quick = 0}), 0);

    EXPECT_TRUE(disk.ReadBytes(0, kStart) == before);
    EXPECT_EQ(disk.ReadBytes(kStart + kLength, kMiB), std::vector<uint8_t>(kMiB));
}

TEST_F(FormatPartitionTest, OnlyAFullFormatZeroesWhatTheFileSystemDoesNotUse)
{
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
    EXPECT_EQ(Format({.fileSystem = u"ext4"}), KK_STATUS_UNSUCCESSFUL);
    EXPECT_EQ(Format({.label = u"Two words"}), KK_STATUS_UNSUCCESSFUL) << "they arrive as two arguments";
    EXPECT_EQ(Format({.fileSystem = u"FAT32", .label = u"TWELVELETTER"}), KK_STATUS_UNSUCCESSFUL);

    EXPECT_EQ(volume.RecognisedFileSystem(), FileSystem::None);
}

TEST_F(FormatPartitionTest, GoesOnInTheBackgroundAfterTwoMinutes)
{
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
    machine.modules.Remove(u"kernel32.dll");

    EXPECT_EQ(Format(), KK_STATUS_NOT_FOUND);
    EXPECT_EQ(api.formatPartition(7, 0, nullptr, nullptr, 1), KK_STATUS_NOT_FOUND);

    EXPECT_THAT(Steps(), ElementsAre("LdrLoadDll kernel32.dll"));
}

TEST_F(FormatPartitionTest, FourEntriesMustBeThereBeforeAnythingIsLookedAt)
{
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
    machine.modules.RemoveEntry(u"kernel32.dll", "GetLogicalDrives");

    EXPECT_EQ(Format(), KK_STATUS_NO_MEDIA_IN_DEVICE);
    EXPECT_THAT(Kernel32Calls(), IsEmpty());
    EXPECT_EQ(volume.Letter(), std::nullopt);

    GiveLetter(u'K');
    EXPECT_EQ(Format(), 0);
}

TEST_F(FormatPartitionTest, AWaitThatIsMissingIsLeftOut)
{
    machine.modules.RemoveEntry(u"kernel32.dll", "WaitForSingleObject");

    EXPECT_EQ(Format(), KK_STATUS_UNSUCCESSFUL) << "the command runs still";
    machine.processes.formatDuration = 0;
    EXPECT_EQ(Format(), 0);
}

TEST_F(FormatPartitionTest, AMissingQuestionForTheExitCodeIsAFailureThoughTheVolumeIsFormatted)
{
    machine.modules.RemoveEntry(u"kernel32.dll", "GetExitCodeProcess");

    EXPECT_EQ(Format(), KK_STATUS_UNSUCCESSFUL);

    EXPECT_EQ(volume.RecognisedFileSystem(), FileSystem::Ntfs);
    EXPECT_EQ(machine.journal.Count({.name = "CloseHandle"}), 2u);
}

TEST_F(FormatPartitionTest, WithoutCloseHandleBothHandlesStayOpen)
{
    EXPECT_EQ(RunForked([&] {
                  machine.modules.RemoveEntry(u"kernel32.dll", "CloseHandle");
                  EXPECT_EQ(Format(), 0);
                  EXPECT_EQ(machine.handles.OpenNames().size(), 2u);
                  return 0;
              }),
              0);
}

}  // namespace
