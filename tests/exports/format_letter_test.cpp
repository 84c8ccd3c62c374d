// The drive letter that a volume has or gets for its format.

#include "exports/support/format_test.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::StartsWith;

class FormatLetterTest : public FormatTest {
protected:
    FormatLetterTest() { ReplaceInterpreter({}); }

    /// The letter that the format command was started for, or what the failing call answered.
    std::string LetterOfFormat()
    {
        const int32_t status = Format();
        return status == 0 ? CommandLine().substr(18, 2) : machine::Hex(static_cast<uint32_t>(status));
    }
};

TEST_F(FormatLetterTest, IsTheOneThatTheVolumeHas)
{
    SHOWS(KkFormatPartition, KK_STATUS_SUCCESS, "the letter that the volume has is used");

    GiveLetter(u'A');

    EXPECT_EQ(LetterOfFormat(), "A:");

    EXPECT_EQ(machine.journal.Count({.name = "GetLogicalDrives"}), 0u);
    EXPECT_EQ(machine.journal.Count({.name = "SetVolumeMountPointW"}), 0u);
    EXPECT_EQ(machine.journal.Count({.name = "DeleteVolumeMountPointW"}), 0u);
    EXPECT_EQ(volume.Letter(), u'A');
}

TEST_F(FormatLetterTest, IsTheOneThatTheVolumeHasAsTheMountManagerKeepsIt)
{
    SHOWS(KkFormatPartition, KK_STATUS_SUCCESS, "the letter is used as the mount manager keeps it");

    AnswerMountPoints({{u"\\DosDevices\\k:", volume.DeviceName()}});

    EXPECT_EQ(LetterOfFormat(), "k:");
}

TEST_F(FormatLetterTest, IsDWhenNoneIsInUse)
{
    SHOWS(KkFormatPartition, KK_STATUS_SUCCESS, "a volume without a letter gets D when none is in use");

    EXPECT_EQ(LetterOfFormat(), "D:");

    EXPECT_EQ(volume.Letter(), u'D');
    EXPECT_EQ(other.Letter(), std::nullopt);
}

TEST_F(FormatLetterTest, IsTheFirstFreeOne)
{
    SHOWS(KkFormatPartition, KK_STATUS_SUCCESS, "a volume without a letter gets the first free one from D on");

    machine.AssignLetter(other, u'E');
    TakeLetters(u"CDFGI");

    EXPECT_EQ(LetterOfFormat(), "H:");

    EXPECT_EQ(volume.Letter(), u'H');
}

TEST_F(FormatLetterTest, MayBeZ)
{
    SHOWS(KkFormatPartition, KK_STATUS_SUCCESS, "Z is the last letter that may be given");

    TakeLetters(u"DEFGHIJKLMNOPQRSTUVWXY");
    machine.drives.Unmap(u'Z');

    EXPECT_EQ(LetterOfFormat(), "Z:");
}

TEST_F(FormatLetterTest, IsNeverAToC)
{
    SHOWS(KkFormatPartition, KK_STATUS_NO_MEDIA_IN_DEVICE,
          "no letter from D to Z is free; A to C are never given, and nothing is started");

    TakeLetters(u"DEFGHIJKLMNOPQRSTUVWXY");

    EXPECT_EQ(Format(), KK_STATUS_NO_MEDIA_IN_DEVICE);

    EXPECT_FALSE(HasStartedAProcess());
    EXPECT_THAT(Kernel32Calls(), ElementsAre("GetLogicalDrives"));
    EXPECT_EQ(volume.Letter(), std::nullopt);
}

template <uint32_t kMask>
uint32_t KK_CALL DrivesOf()
{
    return kMask;
}

TEST_F(FormatLetterTest, GoesByTheMaskAlone)
{
    SHOWS(KkFormatPartition, KK_STATUS_SUCCESS, "only the system's mask of drives decides which letter is free");
    SHOWS(KkFormatPartition, KK_STATUS_NO_MEDIA_IN_DEVICE,
          "the system's mask says that all letters from D on are in use");

    machine.drives.Unmap(u'Z');
    const auto letterFor = [&](auto* drives, const std::string& letter) {
        EXPECT_EQ(RunForked([&] {
                      ReplaceEntry("GetLogicalDrives", drives);
                      EXPECT_EQ(LetterOfFormat(), letter);
                      return 0;
                  }),
                  0)
            << letter;
    };

    letterFor(&DrivesOf<0>, "D:");
    letterFor(&DrivesOf<0x00000007>, "D:");
    letterFor(&DrivesOf<0xFFFFFFEF>, "E:");
    letterFor(&DrivesOf<0xFDFFFFFF>, "Z:");
    letterFor(&DrivesOf<0x03FFFFF8>, "0xC0000013");
    letterFor(&DrivesOf<0xFFFFFFFF>, "0xC0000013");
}

TEST_F(FormatLetterTest, IsTriedOnceWhenTheSystemRefusesIt)
{
    SHOWS(KkFormatPartition, KK_STATUS_NO_MEDIA_IN_DEVICE,
          "the system refuses the first free letter; no other is tried");

    ReplaceEntry("GetLogicalDrives", &DrivesOf<0>);
    TakeLetters(u"D");

    EXPECT_EQ(Format(), KK_STATUS_NO_MEDIA_IN_DEVICE);

    EXPECT_THAT(Kernel32Calls(), ElementsAre(SetCall(u"D:\\")));
}

TEST_F(FormatLetterTest, CannotBeGivenToAVolumeWithoutAPath)
{
    SHOWS(KkFormatPartition, KK_STATUS_NO_MEDIA_IN_DEVICE, "a volume without a path cannot be given a letter");

    AnswerMountPoints({});

    EXPECT_EQ(Format(), KK_STATUS_NO_MEDIA_IN_DEVICE);

    EXPECT_THAT(Kernel32Calls(), ElementsAre("GetLogicalDrives"));
}

TEST_F(FormatLetterTest, CannotBeGivenToAVolumeThatIsNotFoundASecondTime)
{
    SHOWS(KkFormatPartition, KK_STATUS_NO_MEDIA_IN_DEVICE,
          "the volume is not found again when the letter is to be given");

    machine.faults.Fail({.kind = machine::CallKind::CreateFile, .object = "HarddiskVolume2"}, 2, 0xC0000022);

    EXPECT_EQ(Format(), KK_STATUS_NO_MEDIA_IN_DEVICE);

    EXPECT_THAT(Kernel32Calls(), ElementsAre("GetLogicalDrives"));
}

TEST_F(FormatLetterTest, IsReplacedWhenItCannotBeLearnt)
{
    SHOWS(KkFormatPartition, KK_STATUS_SUCCESS, "a letter that cannot be learnt is replaced by the first free one");

    GiveLetter(u'K');
    machine.faults.Fail({.code = kQueryPoints}, 1, 0xC000000D);

    EXPECT_EQ(LetterOfFormat(), "D:");

    EXPECT_THAT(Kernel32Calls(), Contains("DeleteVolumeMountPointW K:\\"));
    EXPECT_EQ(volume.Letter(), u'D');
}

TEST_F(FormatLetterTest, IsAssignedBeforeAnythingElseIsDone)
{
    SHOWS(KkFormatPartition, KK_STATUS_SUCCESS,
          "the letter is given before the system folder is asked for and the command started");

    EXPECT_EQ(LetterOfFormat(), "D:");

    EXPECT_THAT(Steps(),
                ElementsAre("LdrLoadDll kernel32.dll", "NtCreateFile \\Device\\HarddiskVolume1",
                            "NtCreateFile \\Device\\HarddiskVolume2", "NtCreateFile \\Device\\MountPointManager",
                            "GetLogicalDrives", "NtCreateFile \\Device\\HarddiskVolume1",
                            "NtCreateFile \\Device\\HarddiskVolume2", "NtCreateFile \\Device\\MountPointManager",
                            "NtCreateFile \\Device\\MountPointManager", SetCall(u"D:\\"), "GetSystemDirectoryW",
                            StartsWith("CreateProcessW "), StartsWith("WaitForSingleObject "),
                            StartsWith("GetExitCodeProcess "), StartsWith("CloseHandle thread "),
                            StartsWith("CloseHandle process ")));
}

TEST_F(FormatLetterTest, StaysWhateverFailsLater)
{
    SHOWS(KkFormatPartition, KK_STATUS_UNSUCCESSFUL,
          "the letter that was given stays whatever fails later: folder, start, exit code, the command, the wait");

    const auto failsAndKeepsItsLetter = [&] {
        EXPECT_EQ(Format(), KK_STATUS_UNSUCCESSFUL);
        EXPECT_EQ(volume.Letter(), u'D');
        machine.volumes.RemoveLetter(volume);
        machine.faults.Clear();
    };

    machine.faults.Fail({.name = "GetSystemDirectoryW"}, 1, 0);
    failsAndKeepsItsLetter();
    machine.faults.Fail({.name = "CreateProcessW"}, 1, 0);
    failsAndKeepsItsLetter();
    machine.faults.Fail({.name = "GetExitCodeProcess"}, 1, 0);
    failsAndKeepsItsLetter();
    ReplaceInterpreter({.exitCode = 4});
    failsAndKeepsItsLetter();
    ReplaceInterpreter({.duration = machine::ProcessCourse::kForEver});
    failsAndKeepsItsLetter();
}

}  // namespace
