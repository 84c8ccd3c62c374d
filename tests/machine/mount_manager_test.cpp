#include "machine/mount_manager.h"

#include <filesystem>

#include "disk/mount_manager.h"
#include "tests/machine/native_calls.h"

namespace machine {
namespace {

using SetMountPoint = int32_t(KK_CALL*)(const char16_t*, const char16_t*);
using DeleteMountPoint = int32_t(KK_CALL*)(const char16_t*);
using DrivesOf = uint32_t(KK_CALL*)();
using SystemFolder = uint32_t(KK_CALL*)(char16_t*, uint32_t);

class MountManagerTest : public MachineTest {
protected:
    MountManagerTest()
    {
        machine.AddDisk(64 * kMiB).Gpt({.partitions = {{kMiB, kMiB}, {4 * kMiB, kMiB}}});
        machine.AddDisk(64 * kMiB).Mbr({.partitions = {{kMiB, kMiB}}});
    }

    Outcome Query(uint32_t room, size_t input = 24) const
    {
        return Handle(kk::kMountManagerDevice)
            .Control(kk::kIoctlMountmgrQueryPoints, room, std::vector<uint8_t>(input));
    }

    static std::u16string TextAt(const Outcome& answer, uint32_t offset, uint16_t bytes)
    {
        EXPECT_EQ(offset % 2, 0u);
        EXPECT_LE(offset + bytes, answer.information);
        std::u16string text(bytes / 2, u' ');
        std::memcpy(text.data(), answer.output.data() + offset, bytes);
        return text;
    }

    static std::vector<std::pair<std::u16string, std::u16string>> LinksIn(const Outcome& answer)
    {
        std::vector<std::pair<std::u16string, std::u16string>> links;
        for (uint32_t i = 0; i < answer.As<kk::MountPointsHeader>().numberOfMountPoints; ++i) {
            const auto record = answer.As<kk::MountPointRecord>(8 + i * sizeof(kk::MountPointRecord));
            links.emplace_back(TextAt(answer, record.symbolicLinkNameOffset, record.symbolicLinkNameLength),
                               TextAt(answer, record.deviceNameOffset, record.deviceNameLength));
        }
        return links;
    }

    template <typename Function>
    Function Kernel32(const char* name)
    {
        return reinterpret_cast<Function>(machine.modules.FindEntry(machine.modules.Load(u"KERNEL32"), name));
    }
};

TEST_F(MountManagerTest, ListsTheGuidLinkFirstAndThenTheLetterOfEachVolume)
{
    Volume& first = *machine.FindVolume(0, kMiB);
    Volume& second = *machine.FindVolume(0, 4 * kMiB);
    Volume& third = *machine.FindVolume(1, kMiB);
    machine.AssignLetter(first, u'C').AssignLetter(third, u'E');
    machine.mountManager->AddMountPoint(u"\\DosDevices\\LongName:", second.DeviceName());

    const Outcome answer = Query(16384);

    EXPECT_EQ(answer.status, kSuccess);
    EXPECT_EQ(answer.information, answer.As<kk::MountPointsHeader>().size);
    const std::vector<std::pair<std::u16string, std::u16string>> expected = {
        {first.LinkName(), u"\\Device\\HarddiskVolume1"},  {u"\\DosDevices\\C:", u"\\Device\\HarddiskVolume1"},
        {second.LinkName(), u"\\Device\\HarddiskVolume2"}, {u"\\DosDevices\\LongName:", u"\\Device\\HarddiskVolume2"},
        {third.LinkName(), u"\\Device\\HarddiskVolume3"},  {u"\\DosDevices\\E:", u"\\Device\\HarddiskVolume3"},
    };
    EXPECT_EQ(LinksIn(answer), expected);
    EXPECT_EQ(first.LinkName().size(), 48u);
    const auto gptRecord = answer.As<kk::MountPointRecord>(8);
    const auto mbrRecord = answer.As<kk::MountPointRecord>(8 + 4 * sizeof(kk::MountPointRecord));
    EXPECT_EQ(gptRecord.uniqueIdLength, 24);
    EXPECT_EQ(mbrRecord.uniqueIdLength, 12);
    EXPECT_EQ(answer.As<uint32_t>(mbrRecord.uniqueIdOffset), 0x5EED1234u);
}

TEST_F(MountManagerTest, AnAnswerThatDoesNotFitTellsItsSize)
{
    const uint32_t size = Query(16384).As<kk::MountPointsHeader>().size;

    const Outcome cut = Query(size - 1);

    EXPECT_EQ(cut.status, kBufferOverflow);
    EXPECT_EQ(cut.information, 8u);
    EXPECT_EQ(cut.As<kk::MountPointsHeader>().size, size);
    EXPECT_EQ(cut.As<kk::MountPointsHeader>().numberOfMountPoints, 3u);
    EXPECT_EQ(Query(size).status, kSuccess);
    EXPECT_EQ(Query(31).status, kInvalidParameter);
    EXPECT_EQ(Query(16384, 23).status, kInvalidParameter);
}

TEST_F(MountManagerTest, AHostileAnswerCanTakeItsPlace)
{
    machine.mountManager->SetRawAnswer(
        [](const ControlRequest&) { return ControlAnswer{kSuccess, {0xFF, 0xFF, 0xFF, 0xFF}}; });

    EXPECT_EQ(Query(16384).information, 4u);
}

TEST_F(MountManagerTest, AVolumeHoldsOneLetterAndALetterOneVolume)
{
    const auto set = Kernel32<SetMountPoint>("SetVolumeMountPointW");
    const auto remove = Kernel32<DeleteMountPoint>("DeleteVolumeMountPointW");
    const Volume& first = *machine.FindVolume(0, kMiB);
    const Volume& second = *machine.FindVolume(0, 4 * kMiB);

    EXPECT_EQ(set(u"k:\\", first.Path().c_str()), 1);
    EXPECT_EQ(first.Letter(), u'K');
    EXPECT_EQ(set(u"L:\\", first.Path().c_str()), 0);
    EXPECT_EQ(set(u"K:\\", second.Path().c_str()), 0);
    EXPECT_EQ(set(u"Z:\\", second.Path().c_str()), 0) << "a letter that shows a host folder is in use";
    EXPECT_EQ(set(u"L:", second.Path().c_str()), 0);
    EXPECT_EQ(set(u"L:\\", second.LinkName().c_str()), 0);
    EXPECT_EQ(Kernel32<DrivesOf>("GetLogicalDrives")(), (1u << 25) | (1u << 10));
    EXPECT_EQ(Handle(u"\\??\\K:").created.status, kSuccess);
    EXPECT_EQ(remove(u"K:\\"), 1);
    EXPECT_EQ(remove(u"K:\\"), 0);
    EXPECT_EQ(Handle(u"\\??\\K:").created.status, kObjectNameNotFound);
}

TEST_F(MountManagerTest, FoldersMustExistAndBeEmpty)
{
    const auto set = Kernel32<SetMountPoint>("SetVolumeMountPointW");
    const std::filesystem::path folder =
        std::filesystem::temp_directory_path() / ("machine-mount-" + std::to_string(getpid()));
    std::filesystem::create_directories(folder / "empty");
    machine.MapDrive(u'T', folder.string());
    const Volume& volume = *machine.FindVolume(0, kMiB);

    EXPECT_EQ(set(u"T:\\empty\\", volume.Path().c_str()), 1);
    EXPECT_EQ(set(u"T:\\empty\\", volume.Path().c_str()), 0);
    EXPECT_EQ(set(u"T:\\", volume.Path().c_str()), 0);
    EXPECT_EQ(set(u"T:\\missing\\", volume.Path().c_str()), 0);
    EXPECT_EQ(machine.mountManager->Folders().at(u"T:\\empty\\"), volume.Path());
    std::filesystem::remove_all(folder);
}

TEST_F(MountManagerTest, TheSystemFolderIsGivenWithItsLengthOrTheRoomItNeeds)
{
    const auto folderOf = Kernel32<SystemFolder>("GetSystemDirectoryW");
    char16_t buffer[64] = {};

    EXPECT_EQ(folderOf(buffer, 19), 20u);
    EXPECT_EQ(folderOf(buffer, 20), 19u);
    EXPECT_EQ(std::u16string(buffer), u"C:\\Windows\\system32");
}

}  // namespace
}  // namespace machine
