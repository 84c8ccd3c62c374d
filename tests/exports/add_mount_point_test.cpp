#include <climits>

#include "exports/support/volume_test.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// D: is a folder of the host in which there is an empty folder `mnt`.
class AddMountPointTest : public VolumeTest {
protected:
    AddMountPointTest()
    {
        std::filesystem::create_directory(drive / "mnt");
        machine.MapDrive(u'D', drive.Path().string());
    }

    int32_t Add(const std::u16string& directory) const { return api.addMountPoint(0, kStart, directory.c_str()); }

    TemporaryFolder drive;
};

TEST_F(AddMountPointTest, MountsTheVolumeOnAFolderWithOrWithoutABackslashAtItsEnd)
{
    SHOWS(KkAddMountPoint, KK_STATUS_SUCCESS,
          "the volume is mounted on the folder, given with or without a backslash at its end");

    for (const char16_t* const directory : {u"D:\\mnt", u"D:\\mnt\\"}) {
        machine.journal.Clear();

        EXPECT_EQ(Add(directory), 0);

        EXPECT_THAT(Kernel32Calls(), ElementsAre(SetCall(u"D:\\mnt\\")));
        EXPECT_THAT(machine.mountManager->Folders(), ElementsAre(testing::Pair(u"D:\\mnt\\", volume.Path())));
        machine.mountManager->RemoveFolder(u"D:\\mnt\\");
    }
}

TEST_F(AddMountPointTest, TakesItsStepsInOrderAndKeepsTheLetter)
{
    SHOWS(KkAddMountPoint, KK_STATUS_SUCCESS,
          "library, volume and path are looked up in this order; the volume keeps its letter");

    machine.AssignLetter(volume, u'K');

    EXPECT_EQ(Add(u"D:\\mnt"), 0);

    EXPECT_THAT(Steps(), ElementsAre("LdrLoadDll kernel32.dll", "NtCreateFile \\Device\\HarddiskVolume1",
                                     "NtCreateFile \\Device\\HarddiskVolume2",
                                     "NtCreateFile \\Device\\MountPointManager", SetCall(u"D:\\mnt\\")));
    EXPECT_EQ(volume.Letter(), u'K');
}

TEST_F(AddMountPointTest, WithoutTheSystemLibraryDoesNotEvenLookAtTheFolder)
{
    SHOWS(KkAddMountPoint, KK_STATUS_NOT_FOUND,
          "without kernel32.dll nothing is looked at, whatever the other arguments are");

    machine.modules.Remove(u"kernel32.dll");

    EXPECT_EQ(Add(u"D:\\mnt"), KK_STATUS_NOT_FOUND);
    EXPECT_EQ(Add(u""), KK_STATUS_NOT_FOUND);
    EXPECT_EQ(api.addMountPoint(0, kStart, nullptr), KK_STATUS_NOT_FOUND);
    EXPECT_EQ(api.addMountPoint(7, 0, u"D:\\mnt"), KK_STATUS_NOT_FOUND);

    EXPECT_THAT(Steps(), ElementsAre("LdrLoadDll kernel32.dll"));
}

TEST_F(AddMountPointTest, NeedsBothMountPointCallsAndNoOtherEntry)
{
    SHOWS(KkAddMountPoint, KK_STATUS_NOT_FOUND, "each of the two mount-point calls must be there");
    SHOWS(KkAddMountPoint, KK_STATUS_SUCCESS, "no other entry point of kernel32.dll is needed");

    WithoutEachEntry([&](const std::string& entry) {
        const bool needed = entry == "SetVolumeMountPointW" || entry == "DeleteVolumeMountPointW";
        EXPECT_EQ(Add(u"D:\\mnt"), needed ? KK_STATUS_NOT_FOUND : 0);
        EXPECT_EQ(Steps().size() == 1, needed) << "nothing but the library is looked at";
    });
}

TEST_F(AddMountPointTest, RefusesAMissingOrEmptyFolderBeforeItLooksForTheVolume)
{
    SHOWS(KkAddMountPoint, KK_STATUS_INVALID_PARAMETER,
          "a null or empty folder is refused before the volume is looked for");

    EXPECT_EQ(api.addMountPoint(0, kStart, nullptr), KK_STATUS_INVALID_PARAMETER);
    EXPECT_EQ(Add(u""), KK_STATUS_INVALID_PARAMETER);
    EXPECT_EQ(api.addMountPoint(7, 0, u""), KK_STATUS_INVALID_PARAMETER);

    EXPECT_THAT(Steps(), ElementsAre("LdrLoadDll kernel32.dll"));
}

TEST_F(AddMountPointTest, FindsNoMediaInAPartitionWithoutAVolume)
{
    SHOWS(KkAddMountPoint, KK_STATUS_NO_MEDIA_IN_DEVICE, "no partition starts there, or it has no volume");

    EXPECT_EQ(api.addMountPoint(1, kStart, u"D:\\mnt"), KK_STATUS_NO_MEDIA_IN_DEVICE);
    EXPECT_EQ(api.addMountPoint(0, kStart + 512, u"D:\\mnt"), KK_STATUS_NO_MEDIA_IN_DEVICE);
    machine.HideVolume(volume);
    EXPECT_EQ(Add(u"D:\\mnt"), KK_STATUS_NO_MEDIA_IN_DEVICE);

    EXPECT_EQ(machine.journal.Count({.object = "MountPointManager"}), 0u);
}

TEST_F(AddMountPointTest, FindsNoMediaInAVolumeWithoutAPath)
{
    SHOWS(KkAddMountPoint, KK_STATUS_NO_MEDIA_IN_DEVICE,
          "the mount manager knows no path of the volume, or cannot be asked");

    machine.faults.Fail({.code = kQueryPoints}, 1, 0xC000000D);

    EXPECT_EQ(Add(u"D:\\mnt"), KK_STATUS_NO_MEDIA_IN_DEVICE);

    machine.faults.Clear();
    AnswerMountPoints({{u"\\DosDevices\\K:", volume.DeviceName()}, {other.LinkName(), other.DeviceName()}});
    EXPECT_EQ(Add(u"D:\\mnt"), KK_STATUS_NO_MEDIA_IN_DEVICE);
    EXPECT_THAT(Kernel32Calls(), IsEmpty());
}

TEST_F(AddMountPointTest, IsDeniedAccessWhateverTheSystemsReason)
{
    SHOWS(KkAddMountPoint, KK_E_ACCESSDENIED,
          "the system's refusal, whatever its reason: the folder is missing, not empty or mounted on already");

    std::filesystem::create_directories(drive / "full" / "inside");
    EXPECT_EQ(Add(u"D:\\missing"), KK_E_ACCESSDENIED);
    EXPECT_EQ(Add(u"D:\\full"), KK_E_ACCESSDENIED);

    EXPECT_EQ(Add(u"D:\\mnt"), 0);
    EXPECT_EQ(Add(u"D:\\mnt"), KK_E_ACCESSDENIED) << "something is mounted there already";
    EXPECT_FALSE(std::filesystem::exists(drive / "missing")) << "no folder is created";
}

TEST_F(AddMountPointTest, CutsALongFolderBeforeTheBackslashIsAdded)
{
    SHOWS(KkAddMountPoint, "a folder is cut to 517 units before the backslash is added");

    const std::u16string longest = u"D:\\" + std::u16string(514, u'n');
    ASSERT_EQ(longest.size(), 517u);
    const auto pointFor = [&](const std::u16string& directory) {
        machine.journal.Clear();
        EXPECT_EQ(Add(directory), KK_E_ACCESSDENIED);
        return Kernel32Calls();
    };

    EXPECT_THAT(pointFor(longest.substr(1)), ElementsAre(SetCall(longest.substr(1) + u"\\")));
    EXPECT_THAT(pointFor(longest), ElementsAre(SetCall(longest + u"\\")));
    EXPECT_THAT(pointFor(longest + u"x"), ElementsAre(SetCall(longest + u"\\")));
    EXPECT_THAT(pointFor(longest + u"\\"), ElementsAre(SetCall(longest + u"\\")));
    EXPECT_THAT(pointFor(longest + std::u16string(500, u'x')), ElementsAre(SetCall(longest + u"\\")));

    const std::u16string endsAtTheCut = longest.substr(0, 516) + u"\\";
    EXPECT_THAT(pointFor(endsAtTheCut), ElementsAre(SetCall(endsAtTheCut)));
    EXPECT_THAT(pointFor(endsAtTheCut + u"x\\"), ElementsAre(SetCall(endsAtTheCut)));
}

TEST_F(AddMountPointTest, HandsTheFolderOverAsItStands)
{
    SHOWS(KkAddMountPoint, "the folder is handed to the system as it stands but for the backslash at its end");

    const std::pair<std::u16string, std::u16string> cases[] = {
        {u"x", u"x\\"},
        {u"\\", u"\\"},
        {u"D:/mnt/", u"D:/mnt/\\"},
        {u"D:\\mnt\\\\", u"D:\\mnt\\\\"},
        {u"\\\\?\\D:\\B\u00FCcher ", u"\\\\?\\D:\\B\u00FCcher \\"},
        {u"E:", u"E:\\"}};
    for (const auto& [directory, point] : cases) {
        machine.journal.Clear();
        (void)Add(directory);
        EXPECT_THAT(Kernel32Calls(), ElementsAre(SetCall(point)));
    }
}

TEST_F(AddMountPointTest, CutsALongPathOfTheVolume)
{
    SHOWS(KkAddMountPoint, KK_E_ACCESSDENIED,
          "a volume path longer than its buffer is cut, which the system then refuses");

    const std::u16string name(200, u'n');
    AnswerMountPoints({{u"\\??\\Volume{" + name, volume.DeviceName()}});

    EXPECT_EQ(Add(u"D:\\mnt"), KK_E_ACCESSDENIED);

    const std::string cut = machine::Utf8((u"\\\\?\\Volume{" + name).substr(0, 159));
    EXPECT_THAT(Kernel32Calls(), ElementsAre("SetVolumeMountPointW D:\\mnt\\ " + cut));
}

TEST_F(AddMountPointTest, EveryAnswerButZeroIsTrue)
{
    SHOWS(KkAddMountPoint, KK_STATUS_SUCCESS, "any answer of the system but 0 means that it mounted the volume");
    SHOWS(KkAddMountPoint, KK_E_ACCESSDENIED, "the answer 0 means that it did not");

    const auto addWith = [&](auto* answer) {
        return RunForked([&] {
            ReplaceEntry("SetVolumeMountPointW", answer);
            return Add(u"D:\\mnt") == 0 ? 0 : 3;
        });
    };

    EXPECT_EQ(addWith(&MountPointCallThatAnswers<0x100>), 0);
    EXPECT_EQ(addWith(&MountPointCallThatAnswers<INT_MIN>), 0);
    EXPECT_EQ(addWith(&MountPointCallThatAnswers<0>), 3);
}

}  // namespace
