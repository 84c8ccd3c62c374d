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
    GiveLetter(u'A');

    EXPECT_EQ(LetterOfFormat(), "A:");

    EXPECT_EQ(machine.journal.Count({.name = "GetLogicalDrives"}), 0u);
    EXPECT_EQ(machine.journal.Count({.name = "SetVolumeMountPointW"}), 0u);
    EXPECT_EQ(machine.journal.Count({.name = "DeleteVolumeMountPointW"}), 0u);
    EXPECT_EQ(volume.Letter(), u'A');
}

TEST_F(FormatLetterTest, IsTheOneThatTheVolumeHasAsTheMountManagerKeepsIt)
{
    AnswerMountPoints({{u"\\DosDevices\\k:", volume.DeviceName()}});

    EXPECT_EQ(LetterOfFormat(), "k:");
}

TEST_F(FormatLetterTest, IsDWhenNoneIsInUse)
{
    EXPECT_EQ(LetterOfFormat(), "D:");

    EXPECT_EQ(volume.Letter(), u'D');
    EXPECT_EQ(other.Letter(), std::nullopt);
}

TEST_F(FormatLetterTest, IsTheFirstFreeOne)
{
    machine.AssignLetter(other, u'E');
    TakeLetters(u"CDFGI");

    EXPECT_EQ(LetterOfFormat(), "H:");

    EXPECT_EQ(volume.Letter(), u'H');
}

TEST_F(FormatLetterTest, MayBeZ)
{
    TakeLetters(u"DEFGHIJKLMNOPQRSTUVWXY");
    machine.drives.Unmap(u'Z');

    EXPECT_EQ(LetterOfFormat(), "Z:");
}

TEST_F(FormatLetterTest, IsNeverAToC)
{
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
    ReplaceEntry("GetLogicalDrives", &DrivesOf<0>);
    TakeLetters(u"D");

    EXPECT_EQ(Format(), KK_STATUS_NO_MEDIA_IN_DEVICE);

    EXPECT_THAT(Kernel32Calls(), ElementsAre(SetCall(u"D:\\")));
}

TEST_F(FormatLetterTest, CannotBeGivenToAVolumeWithoutAPath)
{
    AnswerMountPoints({});

    EXPECT_EQ(Format(), KK_STATUS_NO_MEDIA_IN_DEVICE);

    EXPECT_THAT(Kernel32Calls(), ElementsAre("GetLogicalDrives"));
}

TEST_F(FormatLetterTest, CannotBeGivenToAVolumeThatIsNotFoundASecondTime)
{
    machine.faults.Fail({.kind = machine::CallKind::CreateFile, .object = "HarddiskVolume2"}, 2, 0xC0000022);

    EXPECT_EQ(Format(), KK_STATUS_NO_MEDIA_IN_DEVICE);

    EXPECT_THAT(Kernel32Calls(), ElementsAre("GetLogicalDrives"));
}

TEST_F(FormatLetterTest, IsReplacedWhenItCannotBeLearnt)
{
    GiveLetter(u'K');
    machine.faults.Fail({.code = kQueryPoints}, 1, 0xC000000D);

    EXPECT_EQ(LetterOfFormat(), "D:");

    EXPECT_THAT(Kernel32Calls(), Contains("DeleteVolumeMountPointW K:\\"));
    EXPECT_EQ(volume.Letter(), u'D');
}

TEST_F(FormatLetterTest, IsAssignedBeforeAnythingElseIsDone)
{
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
