#include <gmock/gmock.h>

#include "machine/format_command.h"
#include "machine/text.h"
#include "support/shell.h"
#include "tests/machine/process_calls.h"

namespace machine {
namespace {

constexpr uint64_t kStart = 3 * kMiB;
constexpr uint64_t kLength = 64 * kMiB;
constexpr uint64_t kSide = 4 * kKiB;

using testing::HasSubstr;

class FormatCommandTest : public ProcessCallsTest {
protected:
    /// A disk with one partition, the volume E:, full of 0xA5 at its edges, in its middle and on both sides.
    Disk& AddVolume(uint64_t length = kLength, const DiskOptions& options = {})
    {
        Disk& disk = machine.AddDisk(length + 8 * kMiB, options);
        disk.Gpt({.partitions = {{.start = kStart, .length = length}}});
        const std::vector<uint8_t> mark(2 * kSide, 0xA5);
        for (const uint64_t place : {kStart, kStart + length / 2, kStart + length}) {
            disk.WriteBytes(place - kSide, mark);
        }
        machine.AssignLetter(*machine.FindVolume(disk.Number(), kStart), u'E');
        return disk;
    }
    Volume& TheVolume() { return *machine.FindVolume(0, kStart); }

    /// Runs `format ARGUMENTS` to its end.
    uint32_t Format(const std::u16string& arguments)
    {
        const kk::NtHandle process = StartCommand(u"format " + arguments);
        Wait(process, 120'000);
        return ExitCode(process);
    }

    /// What a program of the host says about the partition, whose file name follows `command`.
    std::string Judge(const std::string& command, uint64_t length = kLength)
    {
        const TemporaryFile file;
        machine.FindDisk(0)->ExportFile(kStart, length, file.Path());
        return Shell("LC_ALL=C.UTF-8 " + command + " " + file.Path());
    }
    /// A number in the boot sector, in the form that bytes have on disks.
    uint64_t BootNumber(size_t offset, size_t bytes)
    {
        const std::vector<uint8_t> field = machine.FindDisk(0)->ReadBytes(kStart + offset, bytes);
        uint64_t number = 0;
        for (size_t i = 0; i < bytes; ++i) {
            number |= static_cast<uint64_t>(field[i]) << (8 * i);
        }
        return number;
    }
    bool HasMark(uint64_t offset) { return machine.FindDisk(0)->ReadBytes(offset, 1)[0] == 0xA5; }
};

TEST_F(FormatCommandTest, MakesNtfsThatOtherToolsAccept)
{
    AddVolume();

    EXPECT_EQ(Format(u"E: /FS:NTFS /Q /Y /V:Data"), 0u);
    EXPECT_EQ(TheVolume().RecognisedFileSystem(), FileSystem::Ntfs);
    EXPECT_THAT(Judge("ntfsresize -i -f"), HasSubstr("You might resize at"));
    EXPECT_THAT(Judge("ntfsfix -n"), HasSubstr("was processed successfully"));
    EXPECT_EQ(Judge("ntfslabel"), "Data\n");
    EXPECT_EQ(BootNumber(0x1C, 4), kStart / 512);
    EXPECT_EQ(BootNumber(0x28, 8), kLength / 512 - 1);
}

TEST_F(FormatCommandTest, MakesNtfsOnLargeSectors)
{
    AddVolume(kLength, {.sectorSize = 4096});

    EXPECT_EQ(Format(u"E: /FS:NTFS /Q /Y"), 0u);
    EXPECT_EQ(BootNumber(0x0B, 2), 4096u);
    EXPECT_EQ(BootNumber(0x1C, 4), kStart / 4096);
}

TEST_F(FormatCommandTest, MakesFat32ThatOtherToolsAccept)
{
    AddVolume();

    EXPECT_EQ(Format(u"E: /FS:FAT32 /Q /Y /V:Boot"), 0u);
    EXPECT_EQ(TheVolume().RecognisedFileSystem(), FileSystem::Fat32);
    EXPECT_THAT(Judge("fsck.fat -n"), HasSubstr(" 1 files, 1/"));  // the label is an entry of the root
    EXPECT_EQ(Judge("fatlabel"), "BOOT\n");
    EXPECT_EQ(BootNumber(0x1C, 4), kStart / 512);
}

TEST_F(FormatCommandTest, FatIsOfTwelveOrSixteenBitsByItsSize)
{
    AddVolume();

    EXPECT_EQ(Format(u"E: /FS:FAT /Q /Y /V:OLD"), 0u);
    EXPECT_EQ(TheVolume().RecognisedFileSystem(), FileSystem::Fat16);
    EXPECT_EQ(Judge("fatlabel"), "OLD\n");
    machine.RemoveDisk(0);
    AddVolume(8 * kMiB);
    EXPECT_EQ(Format(u"E: /FS:FAT /Q /Y"), 0u);
    EXPECT_EQ(TheVolume().RecognisedFileSystem(), FileSystem::Fat12);
    EXPECT_THAT(Judge("fsck.fat -n", 8 * kMiB), HasSubstr(" 0 files, "));
}

TEST_F(FormatCommandTest, MakesExfatThatOtherToolsAccept)
{
    AddVolume();

    EXPECT_EQ(Format(u"E: /FS:exFAT /Q /Y /V:B\u00FCcher"), 0u);
    EXPECT_EQ(TheVolume().RecognisedFileSystem(), FileSystem::Exfat);
    EXPECT_THAT(Judge("fsck.exfat -n"), HasSubstr("clean"));
    EXPECT_THAT(Judge("exfatlabel"), HasSubstr("label: B\u00FCcher"));
}

TEST_F(FormatCommandTest, OtherHandlesAreDismountedAndNewOnesSeeTheNewFileSystem)
{
    AddVolume();
    const Handle older(TheVolume().LinkName());

    EXPECT_EQ(Format(u"E: /FS:NTFS /Q /Y"), 0u);
    EXPECT_EQ(older.Control(kk::kFsctlGetNtfsVolumeData, 96).status, kVolumeDismounted);
    const Handle newer(TheVolume().LinkName());
    EXPECT_EQ(newer.Control(kk::kFsctlGetNtfsVolumeData, 96).status, kSuccess);
}

TEST_F(FormatCommandTest, AVolumeThatSomebodyHasLockedOrTheSystemUsesFailsTheCommand)
{
    AddVolume();
    {
        const Handle owner(TheVolume().LinkName());
        ASSERT_EQ(owner.Control(kk::kFsctlLockVolume, 0).status, kSuccess);

        EXPECT_EQ(Format(u"E: /FS:NTFS /Q /Y"), kFormatFailed);
        EXPECT_TRUE(HasMark(kStart));
    }
    TheVolume().Opens().SetInUseBySystem(true);

    EXPECT_EQ(Format(u"E: /FS:NTFS /Q /Y"), kFormatFailed);
    EXPECT_TRUE(HasMark(kStart));
}

TEST_F(FormatCommandTest, SwitchesComeInAnyCaseAndOrderAndLabelsInQuotes)
{
    AddVolume();

    EXPECT_EQ(Format(u"e: /y /v:\"Two words\" /q /fs:ntfs"), 0u);
    EXPECT_EQ(Judge("ntfslabel"), "Two words\n");
    EXPECT_EQ(ExitCode(Start(kCommandInterpreter, u"CMD.EXE /C FORMAT.COM E: /Q /V:x")), 259u);
}

TEST_F(FormatCommandTest, WhatIsNoSwitchIsRefusedAndNothingIsWritten)
{
    AddVolume();

    for (const char16_t* const arguments : {u"", u"E", u"E:\\ /Q /Y", u"/Q /Y E:", u"E: /FS:NTFS /Q /Y /V:Two words",
                                            u"E: /Q /Y /X9", u"E: /FS: /Q /Y", u"E: /FS:NTFS/Q/Y extra", u"E: Q"}) {
        EXPECT_EQ(Format(arguments), 1u) << Utf8(arguments);
    }
    EXPECT_TRUE(HasMark(kStart));
    EXPECT_EQ(machine.clock.Now(), machine.processes.All()[0]->start.time);
}

TEST_F(FormatCommandTest, TheInterpretersOwnCharactersAreRefusedOutsideQuotes)
{
    AddVolume();

    EXPECT_EQ(Format(u"E: /FS:NTFS /Q /Y /V:a&b"), 1u);
    EXPECT_TRUE(HasMark(kStart));
    EXPECT_EQ(Format(u"E: /FS:NTFS /Q /Y /V:\"a&b\""), 0u);
    EXPECT_EQ(Judge("ntfslabel"), "a&b\n");
}

TEST_F(FormatCommandTest, LettersWithoutVolumeAndForeignFileSystemsFail)
{
    AddVolume();

    EXPECT_EQ(Format(u"F: /FS:NTFS /Q /Y"), 4u);
    EXPECT_EQ(Format(u"Z: /FS:NTFS /Q /Y"), 4u);
    EXPECT_EQ(Format(u"E: /FS:ReFS /Q /Y"), 4u);
    EXPECT_EQ(Format(u"E: /FS:ext4 /Q /Y"), 4u);
    EXPECT_TRUE(HasMark(kStart));
}

TEST_F(FormatCommandTest, WithoutAFileSystemNameThePresentOneStays)
{
    AddVolume();

    EXPECT_EQ(Format(u"E: /Q /Y"), 0u);
    EXPECT_EQ(TheVolume().RecognisedFileSystem(), FileSystem::Ntfs);
    EXPECT_EQ(Format(u"E: /FS:FAT32 /Q /Y"), 0u);
    EXPECT_EQ(Format(u"E: /Q /Y /V:KEPT"), 0u);
    EXPECT_EQ(TheVolume().RecognisedFileSystem(), FileSystem::Fat32);
    EXPECT_EQ(Judge("fatlabel"), "KEPT\n");
}

TEST_F(FormatCommandTest, WithoutYesItWaitsForAnAnswerThatNeverComes)
{
    AddVolume();
    const kk::NtHandle process = StartCommand(u"format E: /FS:NTFS /Q");

    EXPECT_EQ(Wait(process, 120'000), 0x102u);
    EXPECT_EQ(ExitCode(process), 259u);
    EXPECT_TRUE(HasMark(kStart));
}

TEST_F(FormatCommandTest, OnlyAFullFormatZeroesWhatTheFileSystemDoesNotUse)
{
    AddVolume();
    const uint64_t unused = kStart + kLength - kSide;

    EXPECT_EQ(Format(u"E: /FS:FAT32 /Q /Y"), 0u);
    EXPECT_TRUE(HasMark(unused));
    EXPECT_EQ(Format(u"E: /FS:FAT32 /Y"), 0u);
    EXPECT_EQ(machine.FindDisk(0)->ReadBytes(unused, kSide), std::vector<uint8_t>(kSide));
    EXPECT_EQ(TheVolume().RecognisedFileSystem(), FileSystem::Fat32);
    EXPECT_TRUE(HasMark(kStart - 1));
    EXPECT_TRUE(HasMark(kStart + kLength));
}

TEST_F(FormatCommandTest, TheVolumeChangesWhenTheCommandEndsAndNotBefore)
{
    AddVolume();
    machine.processes.formatDuration = 300 * kSecond;
    const kk::NtHandle process = StartCommand(u"format E: /FS:NTFS /Q /Y");

    EXPECT_EQ(Wait(process, 120'000), 0x102u);
    EXPECT_EQ(ExitCode(process), 259u);
    CloseAll();
    EXPECT_EQ(TheVolume().RecognisedFileSystem(), FileSystem::None);
    machine.clock.Advance(180 * kSecond);
    const Handle volume(TheVolume().LinkName());
    EXPECT_EQ(TheVolume().RecognisedFileSystem(), FileSystem::Ntfs);
    EXPECT_EQ(machine.processes.All()[0]->exitCode, 0u);
}

TEST_F(FormatCommandTest, AVolumeThatGoesMeanwhileFailsTheCommand)
{
    Disk& disk = AddVolume();
    const kk::NtHandle process = StartCommand(u"format E: /FS:NTFS /Q /Y");
    disk.Gpt({});

    EXPECT_EQ(Wait(process, 120'000), 0u);
    EXPECT_EQ(ExitCode(process), 4u);
    EXPECT_TRUE(HasMark(kStart));
}

TEST_F(FormatCommandTest, MediaThatCannotBeWrittenFailTheCommand)
{
    AddVolume().behaviour.readOnly = true;

    EXPECT_EQ(Format(u"E: /FS:NTFS /Q /Y"), 4u);
    machine.FindDisk(0)->behaviour = {.noMedia = true};
    EXPECT_EQ(Format(u"E: /FS:NTFS /Q /Y"), 4u);
    EXPECT_TRUE(HasMark(kStart));
}

TEST_F(FormatCommandTest, LabelsAreLimitedByTheFileSystemAndJudgedBeforeAnythingIsWritten)
{
    AddVolume();
    const std::u16string longest(32, u'n');

    EXPECT_EQ(Format(u"E: /FS:NTFS /Y /V:" + longest + u"n"), 4u);
    EXPECT_EQ(Format(u"E: /FS:FAT32 /Y /V:TWELVELETTER"), 4u);
    EXPECT_EQ(Format(u"E: /FS:exFAT /Y /V:twelveletter"), 4u);
    EXPECT_EQ(Format(u"E: /FS:FAT32 /Y /V:A.B"), 4u);
    EXPECT_EQ(Format(u"E: /FS:FAT32 /Y /V:B\u00FCcher"), 4u);
    EXPECT_TRUE(HasMark(kStart));
    EXPECT_EQ(Format(u"E: /FS:NTFS /Q /Y /V:" + longest), 0u);
    EXPECT_EQ(Judge("ntfslabel"), Utf8(longest) + "\n");
}

TEST_F(FormatCommandTest, PartitionsOutsideTheSizesOfAFileSystemFailTheCommand)
{
    AddVolume(kMiB);

    EXPECT_EQ(Format(u"E: /FS:NTFS /Q /Y"), 4u);
    EXPECT_EQ(Format(u"E: /FS:exFAT /Q /Y"), 4u);
    EXPECT_TRUE(HasMark(kStart));
    machine.RemoveDisk(0);
    AddVolume(31 * kMiB);
    EXPECT_EQ(Format(u"E: /FS:FAT32 /Q /Y"), 4u);
    machine.RemoveDisk(0);
    AddVolume(32 * kMiB);
    EXPECT_EQ(Format(u"E: /FS:FAT32 /Q /Y"), 0u);
    machine.RemoveDisk(0);
    AddVolume(33ull << 30);
    EXPECT_EQ(Format(u"E: /FS:FAT32 /Q /Y"), 4u);
    EXPECT_EQ(Format(u"E: /FS:FAT /Q /Y"), 4u);
    EXPECT_TRUE(HasMark(kStart));
}

TEST_F(FormatCommandTest, ExfatIsNotMadeOnLargeSectorsNorAnythingAcrossPartitions)
{
    AddVolume(kLength, {.sectorSize = 4096});

    EXPECT_EQ(Format(u"E: /FS:exFAT /Q /Y"), 4u);
    TheVolume().AddExtent({machine.ShareDisk(0), kStart + kLength, kMiB});
    EXPECT_EQ(Format(u"E: /FS:NTFS /Q /Y"), 4u);
    EXPECT_TRUE(HasMark(kStart));
}

}  // namespace
}  // namespace machine
