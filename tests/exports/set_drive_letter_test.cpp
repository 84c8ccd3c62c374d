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
    EXPECT_EQ(Set(u'X'), 0);

    EXPECT_EQ(volume.Letter(), u'X');
    EXPECT_EQ(other.Letter(), std::nullopt);
    EXPECT_THAT(Kernel32Calls(), ElementsAre(SetCall(u"X:\\")));
}

TEST_F(SetDriveLetterTest, TakesItsStepsInOrder)
{
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
    WithoutEachEntry([&](const std::string& entry) {
        const bool needed = entry == "SetVolumeMountPointW" || entry == "DeleteVolumeMountPointW";
        EXPECT_EQ(Set(u'X'), needed ? KK_STATUS_NOT_FOUND : 0);
        EXPECT_EQ(volume.Letter().has_value(), !needed);
        EXPECT_EQ(Steps().size() == 1, needed) << "nothing but the library is looked at";
    });
}

TEST_F(SetDriveLetterTest, RefusesAPartitionWithoutAVolume)
{
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
    GiveLetter(u'K');

    EXPECT_EQ(Set(0), 0);

    EXPECT_EQ(volume.Letter(), std::nullopt);
    EXPECT_THAT(Kernel32Calls(), ElementsAre("DeleteVolumeMountPointW K:\\"));
}

TEST_F(SetDriveLetterTest, ZeroDoesNothingToAVolumeWithoutALetter)
{
    machine.AssignLetter(other, u'K');

    EXPECT_EQ(Set(0), 0);

    EXPECT_THAT(Kernel32Calls(), IsEmpty());
    EXPECT_EQ(other.Letter(), u'K');
}

TEST_F(SetDriveLetterTest, ZeroSucceedsAlthoughTheLetterStays)
{
    GiveLetter(u'K');
    machine.faults.Fail({.name = "DeleteVolumeMountPointW"}, 1, 0);

    EXPECT_EQ(Set(0), 0);

    EXPECT_EQ(volume.Letter(), u'K');
}

TEST_F(SetDriveLetterTest, ZeroNeedsNoPathOfTheVolume)
{
    GiveLetter(u'K');
    FailQuery(1);

    EXPECT_EQ(Set(0), 0);

    EXPECT_EQ(volume.Letter(), std::nullopt);
}

TEST_F(SetDriveLetterTest, OnlyTheLettersLowSixteenBitsCount)
{
    const auto set = std::bit_cast<KK_STATUS(KK_CALL*)(uint32_t, uint64_t, uint32_t)>(api.setDriveLetter);

    EXPECT_EQ(set(0, kStart, 0xABCD0000u | u'X'), 0);
    EXPECT_EQ(volume.Letter(), u'X');
    EXPECT_EQ(set(0, kStart, 0xABCD0000u), 0);
    EXPECT_EQ(volume.Letter(), std::nullopt);
}

TEST_F(SetDriveLetterTest, AssignsTheSameLetterAgain)
{
    GiveLetter(u'K');

    EXPECT_EQ(Set(u'K'), 0);

    EXPECT_EQ(volume.Letter(), u'K');
    EXPECT_THAT(Kernel32Calls(), ElementsAre("DeleteVolumeMountPointW K:\\", SetCall(u"K:\\")));
}

TEST_F(SetDriveLetterTest, AVolumeWithoutAPathHasLostItsLetterAlready)
{
    AnswerMountPoints({{u"\\DosDevices\\K:", volume.DeviceName()}});
    GiveLetter(u'K');

    EXPECT_EQ(Set(u'X'), KK_STATUS_NO_MEDIA_IN_DEVICE);

    EXPECT_EQ(volume.Letter(), std::nullopt);
    EXPECT_THAT(Kernel32Calls(), ElementsAre("DeleteVolumeMountPointW K:\\"));
}

TEST_F(SetDriveLetterTest, LooksForThePathBeforeTheLetter)
{
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
    GiveLetter(u'K');
    machine.faults.Fail({.name = "DeleteVolumeMountPointW"}, 1, 0);

    EXPECT_EQ(Set(u'X'), KK_E_ACCESSDENIED);

    EXPECT_EQ(volume.Letter(), u'K');
    EXPECT_THAT(Kernel32Calls(), ElementsAre("DeleteVolumeMountPointW K:\\", SetCall(u"X:\\")));
}

TEST_F(SetDriveLetterTest, ALetterThatIsTakenIsDeniedAndTheOldOneIsGone)
{
    GiveLetter(u'K');
    machine.AssignLetter(other, u'X');

    EXPECT_EQ(Set(u'X'), KK_E_ACCESSDENIED);

    EXPECT_EQ(volume.Letter(), std::nullopt);
    EXPECT_EQ(other.Letter(), u'X');
}

TEST_F(SetDriveLetterTest, DoesNotChangeTheCaseOfTheLetter)
{
    EXPECT_EQ(Set(u'x'), 0);

    EXPECT_EQ(volume.Letter(), u'X') << "as the system keeps it";
    EXPECT_THAT(Kernel32Calls(), ElementsAre(SetCall(u"x:\\")));
}

TEST_F(SetDriveLetterTest, LeavesItToTheSystemWhatIsALetter)
{
    for (const char16_t letter : {u'1', u' ', u'\\', u'\u00C4', u'\uFFFF'}) {
        machine.journal.Clear();
        EXPECT_EQ(Set(letter), KK_E_ACCESSDENIED);
        EXPECT_THAT(Kernel32Calls(), ElementsAre(SetCall(std::u16string(1, letter) + u":\\")));
    }
}

TEST_F(SetDriveLetterTest, DeletesTheOldLetterAsTheMountManagerKeepsIt)
{
    AnswerMountPoints({{volume.LinkName(), volume.DeviceName()}, {u"\\DosDevices\\k:", volume.DeviceName()}});
    GiveLetter(u'K');

    EXPECT_EQ(Set(u'X'), 0);

    EXPECT_THAT(Kernel32Calls(), ElementsAre("DeleteVolumeMountPointW k:\\", SetCall(u"X:\\")));
}

TEST_F(SetDriveLetterTest, TakesOneLetterAwayAtMostTheFirstThatIsListed)
{
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
    EXPECT_EQ(Set(u'X'), 0);
    machine.volumes.RemoveLetter(volume);
    GiveLetter(u'Y');
    machine.journal.Clear();

    EXPECT_EQ(Set(0), 0);

    EXPECT_THAT(Kernel32Calls(), ElementsAre("DeleteVolumeMountPointW Y:\\"));
}

TEST_F(SetDriveLetterTest, ReadsMoreMountPointsThanTheFirstBufferHolds)
{
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
    const std::u16string name(200, u'n');
    AnswerMountPoints({{u"\\??\\Volume{" + name, volume.DeviceName()}});

    EXPECT_EQ(Set(u'X'), KK_E_ACCESSDENIED);

    const std::string cut = machine::Utf8((u"\\\\?\\Volume{" + name).substr(0, 159));
    EXPECT_THAT(Kernel32Calls(), ElementsAre("SetVolumeMountPointW X:\\ " + cut));
}

TEST_F(SetDriveLetterTest, EveryAnswerButZeroIsTrue)
{
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
