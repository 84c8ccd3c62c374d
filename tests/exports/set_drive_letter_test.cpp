#include <bit>
#include <climits>

#include "exports/support/volume_test.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class SetDriveLetterTest : public VolumeTest {
protected:
    int32_t Set(char16_t letter) const { return api.setDriveLetter(0, kStart, letter); }
    void GiveLetter(char16_t letter) { machine.AssignLetter(volume, letter); }
    void FailQuery(uint64_t nth) { machine.faults.Fail({.code = kQueryPoints}, nth, 0xC000000D); }

    const std::string path = machine::Utf8(volume.Path());
};

TEST_F(SetDriveLetterTest, GivesALetterToAVolumeWithoutOne)
{
    SHOWS(KkSetDriveLetter, KK_STATUS_SUCCESS, "a volume without a letter gets one; other volumes are left alone");

    EXPECT_EQ(Set(u'X'), 0);

    EXPECT_EQ(volume.Letter(), u'X');
    EXPECT_EQ(other.Letter(), std::nullopt);
    EXPECT_THAT(Kernel32Calls(), ElementsAre(SetCall(u"X:\\")));
}

TEST_F(SetDriveLetterTest, TakesItsStepsInOrder)
{
    SHOWS(KkSetDriveLetter, KK_STATUS_SUCCESS,
          "volume, path and old letter are looked up; the old letter goes before the new one comes");

    GiveLetter(u'K');

    EXPECT_EQ(Set(u'X'), 0);

    EXPECT_THAT(Steps(),
                ElementsAre("LdrLoadDll kernel32.dll", "NtCreateFile \\Device\\HarddiskVolume1",
                            "NtCreateFile \\Device\\HarddiskVolume2", "NtCreateFile \\Device\\MountPointManager",
                            "NtCreateFile \\Device\\MountPointManager", "DeleteVolumeMountPointW K:\\",
                            SetCall(u"X:\\")));
    EXPECT_EQ(volume.Letter(), u'X');
}

TEST_F(SetDriveLetterTest, WithoutTheSystemLibraryLooksAtNothingAndNeverLooksForItAgain)
{
    SHOWS(KkSetDriveLetter, KK_STATUS_NOT_FOUND,
          "without kernel32.dll nothing is looked at, and it is not looked for a second time");

    GiveLetter(u'K');
    machine.modules.Remove(u"kernel32.dll");

    EXPECT_EQ(Set(u'X'), KK_STATUS_NOT_FOUND);
    EXPECT_EQ(Set(0), KK_STATUS_NOT_FOUND);
    EXPECT_EQ(api.setDriveLetter(7, 0, u'X'), KK_STATUS_NOT_FOUND);

    EXPECT_THAT(Steps(), ElementsAre("LdrLoadDll kernel32.dll"));
    EXPECT_EQ(volume.Letter(), u'K');
}

TEST_F(SetDriveLetterTest, NeedsBothMountPointCallsAndNoOtherEntry)
{
    SHOWS(KkSetDriveLetter, KK_STATUS_NOT_FOUND, "each of the two mount-point calls must be there");
    SHOWS(KkSetDriveLetter, KK_STATUS_SUCCESS, "no other entry point of kernel32.dll is needed");

    WithoutEachEntry([&](const std::string& entry) {
        const bool needed = entry == "SetVolumeMountPointW" || entry == "DeleteVolumeMountPointW";
        EXPECT_EQ(Set(u'X'), needed ? KK_STATUS_NOT_FOUND : 0);
        EXPECT_EQ(volume.Letter().has_value(), !needed);
        EXPECT_EQ(Steps().size() == 1, needed) << "nothing but the library is looked at";
    });
}

TEST_F(SetDriveLetterTest, RefusesAPartitionWithoutAVolume)
{
    SHOWS(KkSetDriveLetter, KK_STATUS_INVALID_PARAMETER,
          "no partition starts there, or it has no volume, or one with a number above 127");

    const auto refuses = [&](uint32_t diskNumber, uint64_t start) {
        machine.journal.Clear();
        EXPECT_EQ(api.setDriveLetter(diskNumber, start, u'X'), KK_STATUS_INVALID_PARAMETER);
        EXPECT_EQ(api.setDriveLetter(diskNumber, start, 0), KK_STATUS_INVALID_PARAMETER);
        EXPECT_EQ(machine.journal.Count({.object = "MountPointManager"}), 0u);
        EXPECT_THAT(Kernel32Calls(), IsEmpty());
    };
    GiveLetter(u'K');

    refuses(1, kStart);
    refuses(0, kStart + 512);
    refuses(0, 0);
    machine.SetVolumeNumber(volume, 128);
    refuses(0, kStart);
    EXPECT_EQ(volume.Letter(), u'K');
    machine.HideVolume(volume);
    refuses(0, kStart);
}

TEST_F(SetDriveLetterTest, ZeroTakesTheLetterAway)
{
    SHOWS(KkSetDriveLetter, KK_STATUS_SUCCESS, "the letter 0 takes the letter away");

    GiveLetter(u'K');

    EXPECT_EQ(Set(0), 0);

    EXPECT_EQ(volume.Letter(), std::nullopt);
    EXPECT_THAT(Kernel32Calls(), ElementsAre("DeleteVolumeMountPointW K:\\"));
}

TEST_F(SetDriveLetterTest, ZeroDoesNothingToAVolumeWithoutALetter)
{
    SHOWS(KkSetDriveLetter, KK_STATUS_SUCCESS, "the letter 0 does nothing to a volume without one");

    machine.AssignLetter(other, u'K');

    EXPECT_EQ(Set(0), 0);

    EXPECT_THAT(Kernel32Calls(), IsEmpty());
    EXPECT_EQ(other.Letter(), u'K');
}

TEST_F(SetDriveLetterTest, ZeroSucceedsAlthoughTheLetterStays)
{
    SHOWS(KkSetDriveLetter, KK_STATUS_SUCCESS,
          "the letter 0 succeeds although the system does not take the letter away");

    GiveLetter(u'K');
    machine.faults.Fail({.name = "DeleteVolumeMountPointW"}, 1, 0);

    EXPECT_EQ(Set(0), 0);

    EXPECT_EQ(volume.Letter(), u'K');
}

TEST_F(SetDriveLetterTest, ZeroNeedsNoPathOfTheVolume)
{
    SHOWS(KkSetDriveLetter, KK_STATUS_SUCCESS, "the letter 0 needs no path of the volume");

    GiveLetter(u'K');
    FailQuery(1);

    EXPECT_EQ(Set(0), 0);

    EXPECT_EQ(volume.Letter(), std::nullopt);
}

TEST_F(SetDriveLetterTest, OnlyTheLettersLowSixteenBitsCount)
{
    SHOWS(KkSetDriveLetter, KK_STATUS_SUCCESS, "only the low 16 bits of the letter count");

    const auto set = std::bit_cast<KK_STATUS(KK_CALL*)(uint32_t, uint64_t, uint32_t)>(api.setDriveLetter);

    EXPECT_EQ(set(0, kStart, 0xABCD0000u | u'X'), 0);
    EXPECT_EQ(volume.Letter(), u'X');
    EXPECT_EQ(set(0, kStart, 0xABCD0000u), 0);
    EXPECT_EQ(volume.Letter(), std::nullopt);
}

TEST_F(SetDriveLetterTest, AssignsTheSameLetterAgain)
{
    SHOWS(KkSetDriveLetter, KK_STATUS_SUCCESS, "the same letter is taken away and given again");

    GiveLetter(u'K');

    EXPECT_EQ(Set(u'K'), 0);

    EXPECT_EQ(volume.Letter(), u'K');
    EXPECT_THAT(Kernel32Calls(), ElementsAre("DeleteVolumeMountPointW K:\\", SetCall(u"K:\\")));
}

TEST_F(SetDriveLetterTest, AVolumeWithoutAPathHasLostItsLetterAlready)
{
    SHOWS(KkSetDriveLetter, KK_STATUS_NO_MEDIA_IN_DEVICE,
          "the mount manager knows no path of the volume; the old letter is gone all the same");

    AnswerMountPoints({{u"\\DosDevices\\K:", volume.DeviceName()}});
    GiveLetter(u'K');

    EXPECT_EQ(Set(u'X'), KK_STATUS_NO_MEDIA_IN_DEVICE);

    EXPECT_EQ(volume.Letter(), std::nullopt);
    EXPECT_THAT(Kernel32Calls(), ElementsAre("DeleteVolumeMountPointW K:\\"));
}

TEST_F(SetDriveLetterTest, LooksForThePathBeforeTheLetter)
{
    SHOWS(KkSetDriveLetter, KK_E_ACCESSDENIED,
          "the old letter cannot be learnt, so it stays and the new one is refused");
    SHOWS(KkSetDriveLetter, KK_STATUS_NO_MEDIA_IN_DEVICE,
          "the mount manager cannot be asked for the path; the old letter is gone all the same");

    GiveLetter(u'K');
    FailQuery(2);

    EXPECT_EQ(Set(u'X'), KK_E_ACCESSDENIED) << "the system keeps one letter of a volume at most";
    EXPECT_EQ(volume.Letter(), u'K');
    EXPECT_THAT(Kernel32Calls(), ElementsAre(SetCall(u"X:\\")));

    machine.faults.Clear();
    FailQuery(1);
    EXPECT_EQ(Set(u'X'), KK_STATUS_NO_MEDIA_IN_DEVICE);
    EXPECT_EQ(volume.Letter(), std::nullopt);
}

TEST_F(SetDriveLetterTest, TriesTheNewLetterEvenWhenTheOldOneStays)
{
    SHOWS(KkSetDriveLetter, KK_E_ACCESSDENIED, "the system does not take the old letter away, and refuses the new one");

    GiveLetter(u'K');
    machine.faults.Fail({.name = "DeleteVolumeMountPointW"}, 1, 0);

    EXPECT_EQ(Set(u'X'), KK_E_ACCESSDENIED);

    EXPECT_EQ(volume.Letter(), u'K');
    EXPECT_THAT(Kernel32Calls(), ElementsAre("DeleteVolumeMountPointW K:\\", SetCall(u"X:\\")));
}

TEST_F(SetDriveLetterTest, ALetterThatIsTakenIsDeniedAndTheOldOneIsGone)
{
    SHOWS(KkSetDriveLetter, KK_E_ACCESSDENIED, "the new letter is taken; the old one is gone");

    GiveLetter(u'K');
    machine.AssignLetter(other, u'X');

    EXPECT_EQ(Set(u'X'), KK_E_ACCESSDENIED);

    EXPECT_EQ(volume.Letter(), std::nullopt);
    EXPECT_EQ(other.Letter(), u'X');
}

TEST_F(SetDriveLetterTest, DoesNotChangeTheCaseOfTheLetter)
{
    SHOWS(KkSetDriveLetter, KK_STATUS_SUCCESS, "the letter is handed on without a change of case");

    EXPECT_EQ(Set(u'x'), 0);

    EXPECT_EQ(volume.Letter(), u'X') << "as the system keeps it";
    EXPECT_THAT(Kernel32Calls(), ElementsAre(SetCall(u"x:\\")));
}

TEST_F(SetDriveLetterTest, LeavesItToTheSystemWhatIsALetter)
{
    SHOWS(KkSetDriveLetter, KK_E_ACCESSDENIED, "characters that are no letters are left to the system to refuse");

    for (const char16_t letter : {u'1', u' ', u'\\', u'\u00C4', u'\uFFFF'}) {
        machine.journal.Clear();
        EXPECT_EQ(Set(letter), KK_E_ACCESSDENIED);
        EXPECT_THAT(Kernel32Calls(), ElementsAre(SetCall(std::u16string(1, letter) + u":\\")));
    }
}

TEST_F(SetDriveLetterTest, DeletesTheOldLetterAsTheMountManagerKeepsIt)
{
    SHOWS(KkSetDriveLetter, KK_STATUS_SUCCESS, "the old letter is taken away as the mount manager keeps it");

    AnswerMountPoints({{volume.LinkName(), volume.DeviceName()}, {u"\\DosDevices\\k:", volume.DeviceName()}});
    GiveLetter(u'K');

    EXPECT_EQ(Set(u'X'), 0);

    EXPECT_THAT(Kernel32Calls(), ElementsAre("DeleteVolumeMountPointW k:\\", SetCall(u"X:\\")));
}

TEST_F(SetDriveLetterTest, TakesOneLetterAwayAtMostTheFirstThatIsListed)
{
    SHOWS(KkSetDriveLetter, KK_STATUS_SUCCESS, "of several letters the first that is well formed is taken away");

    AnswerMountPoints({{u"\\DosDevices\\J:", other.DeviceName()},
                       {u"\\DosDevices\\KK:", volume.DeviceName()},
                       {u"\\DosDevices\\K:\\", volume.DeviceName()},
                       {u"\\DosDevices\\:", volume.DeviceName()},
                       {u"\\DosDevices\\K;", volume.DeviceName()},
                       {u"\\DosDevices\\L:", volume.DeviceName()},
                       {u"\\DosDevices\\M:", volume.DeviceName()}});

    EXPECT_EQ(Set(0), 0);

    EXPECT_THAT(Kernel32Calls(), ElementsAre("DeleteVolumeMountPointW L:\\"));
}

TEST_F(SetDriveLetterTest, SeesAtOnceThatSomeoneElseChangedTheLetter)
{
    SHOWS(KkSetDriveLetter, KK_STATUS_SUCCESS, "letters that others changed are seen at once");

    EXPECT_EQ(Set(u'X'), 0);
    machine.volumes.RemoveLetter(volume);
    GiveLetter(u'Y');
    machine.journal.Clear();

    EXPECT_EQ(Set(0), 0);

    EXPECT_THAT(Kernel32Calls(), ElementsAre("DeleteVolumeMountPointW Y:\\"));
}

TEST_F(SetDriveLetterTest, ReadsMoreMountPointsThanTheFirstBufferHolds)
{
    SHOWS(KkSetDriveLetter, KK_STATUS_SUCCESS,
          "a mount manager that tells more than the first buffer holds is asked again");

    GiveLetter(u'K');
    for (int i = 0; i < 300; ++i) {
        machine.mountManager->AddMountPoint(u"\\DosDevices\\folder", u"\\Device\\Other");
    }
    const uint64_t size = machine::MountManager::Encode(machine.mountManager->Points()).size();
    ASSERT_GT(size, 16384u);

    EXPECT_EQ(Set(u'X'), 0);

    EXPECT_EQ(volume.Letter(), u'X');
    std::vector<uint64_t> rooms;
    for (const machine::CallRecord& query : machine.journal.FindAll({.code = kQueryPoints})) {
        rooms.push_back(query.length);
    }
    EXPECT_THAT(rooms, ElementsAre(16384, size, 16384, size));
}

TEST_F(SetDriveLetterTest, CutsALongPathOfTheVolume)
{
    SHOWS(KkSetDriveLetter, KK_E_ACCESSDENIED,
          "a volume path longer than its buffer is cut, which the system then refuses");

    const std::u16string name(200, u'n');
    AnswerMountPoints({{u"\\??\\Volume{" + name, volume.DeviceName()}});

    EXPECT_EQ(Set(u'X'), KK_E_ACCESSDENIED);

    const std::string cut = machine::Utf8((u"\\\\?\\Volume{" + name).substr(0, 159));
    EXPECT_THAT(Kernel32Calls(), ElementsAre("SetVolumeMountPointW X:\\ " + cut));
}

TEST_F(SetDriveLetterTest, EveryAnswerButZeroIsTrue)
{
    SHOWS(KkSetDriveLetter, KK_STATUS_SUCCESS, "any answer of the system but 0 means that it gave the letter");
    SHOWS(KkSetDriveLetter, KK_E_ACCESSDENIED, "the answer 0 means that it did not");

    const auto setWith = [&](auto* answer) {
        return RunForked([&] {
            ReplaceEntry("SetVolumeMountPointW", answer);
            return Set(u'X') == 0 ? 0 : 3;
        });
    };

    EXPECT_EQ(setWith(&MountPointCallThatAnswers<0x100>), 0);
    EXPECT_EQ(setWith(&MountPointCallThatAnswers<INT_MIN>), 0);
    EXPECT_EQ(setWith(&MountPointCallThatAnswers<0>), 3);
}

}  // namespace
