#include <fstream>
#include <memory>

#include "machine/memory_virtual_disks.h"
#include "machine/virtual_disk_service.h"
#include "tests/machine/native_calls.h"
#include "virtual_disk_fixture.h"

namespace machine {
namespace {

using test::VirtualDiskTest;

constexpr uint32_t kFlags = 3;
constexpr uint32_t kUsualRoom = 2120;
constexpr OpenHow kForAttributes = {.access = 0x100080, .options = 0x60};

/// An answer in a buffer of its own.
struct Answer {
    explicit Answer(uint32_t room, uint32_t version = 2) : bytes((room + 7) / 8), size(room)
    {
        Head().version = version;
    }
    kk::StorageDependencyInfo& Head() { return *reinterpret_cast<kk::StorageDependencyInfo*>(bytes.data()); }
    const kk::StorageDependencyEntry& Entry(size_t index)
    {
        return reinterpret_cast<const kk::StorageDependencyEntry*>(&Head() + 1)[index];
    }
    bool Holds(const char16_t* text) const
    {
        const auto* const place = reinterpret_cast<const uint8_t*>(text);
        const auto* const start = reinterpret_cast<const uint8_t*>(bytes.data());
        return place >= start && place < start + size;
    }

    std::vector<uint64_t> bytes;
    uint32_t size;
    uint32_t used = 0xEEEEEEEE;
};

/// A machine with an image in memory that disk 1 shows.
class StorageDependencyTest : public VirtualDiskTest {
protected:
    StorageDependencyTest()
    {
        EXPECT_EQ(Create(Parameters(16 * kMiB)), 0u);
        EXPECT_EQ(AttachForGood(), 0u);
    }

    uint32_t Ask(Answer& answer, const std::u16string& device = u"\\??\\PhysicalDrive1", uint32_t flags = kFlags)
    {
        const Handle disk(device, kForAttributes);
        EXPECT_EQ(disk.created.status, kSuccess);
        return Entry<kk::GetStorageDependencyInformationFn>("GetStorageDependencyInformation")(
            disk.value, flags, answer.size, &answer.Head(), &answer.used);
    }
    static DependencyTexts Texts(std::u16string relativePath)
    {
        return {.deviceName = u"device", .hostVolumeName = u"", .relativePath = std::move(relativePath)};
    }

    std::shared_ptr<MemoryVirtualDisks> images_ = std::make_shared<MemoryVirtualDisks>();
    VirtualDiskService& service_ = InstallVirtualDiskService(*machine_, images_);
    DependencyBehaviour& deviation_ = service_.behaviour.dependency;
};

TEST_F(StorageDependencyTest, AnImagesDiskTellsVolumeAndPathOfItsFile)
{
    Answer answer(kUsualRoom);

    ASSERT_EQ(Ask(answer), 0u);

    ASSERT_EQ(answer.Head().numberEntries, 1u);
    const kk::StorageDependencyEntry& entry = answer.Entry(0);
    EXPECT_EQ(std::u16string(entry.dependencyDeviceName), u"\\\\.\\PhysicalDrive1");
    EXPECT_TRUE(std::u16string_view(entry.hostVolumeName).starts_with(u"\\\\?\\Volume{"));
    EXPECT_TRUE(std::u16string_view(entry.hostVolumeName).ends_with(u"}\\"));
    EXPECT_EQ(u"Z:" + std::u16string(entry.dependentVolumeRelativePath), HostDrives::WindowsPath(ImageFile().string()));
    EXPECT_EQ(entry.dependentVolumeName, nullptr);
    EXPECT_EQ(entry.dependencyTypeFlags, 0x400u);
    EXPECT_EQ(entry.virtualStorageType.deviceId, 3u);
}

TEST_F(StorageDependencyTest, VolumeAndPathTogetherLeadToTheFile)
{
    std::ofstream(ImageFile()) << "on the host";
    Answer answer(kUsualRoom);
    ASSERT_EQ(Ask(answer), 0u);
    const kk::StorageDependencyEntry& entry = answer.Entry(0);
    const std::u16string path =
        std::u16string(entry.hostVolumeName) + std::u16string(entry.dependentVolumeRelativePath).substr(1);

    EXPECT_EQ(machine_->drives.HostPath(path), ImageFile().string());
    ASSERT_EQ(Unmount(), 0u);
    EXPECT_EQ(Handle(u"\\??\\" + path.substr(4)).Read(0, 2).output, std::vector<uint8_t>({'o', 'n'}));
    EXPECT_EQ(Handle(u"\\??\\" + std::u16string(entry.hostVolumeName).substr(4)).created.status, kFileIsADirectory);
    EXPECT_EQ(Handle(u"\\??\\" + path.substr(4, 40)).created.status, kObjectNameNotFound);
}

TEST_F(StorageDependencyTest, TheTextsLieInTheAnswerBehindTheEntries)
{
    Answer answer(kUsualRoom);
    ASSERT_EQ(Ask(answer), 0u);

    const kk::StorageDependencyEntry& entry = answer.Entry(0);
    const char16_t* last = nullptr;
    for (const char16_t* const text :
         {entry.dependencyDeviceName, entry.hostVolumeName, entry.dependentVolumeRelativePath}) {
        EXPECT_TRUE(answer.Holds(text));
        EXPECT_GE(reinterpret_cast<const void*>(text), reinterpret_cast<const void*>(&entry + 1));
        EXPECT_GT(text, last);
        last = text;
    }
    const auto* const end = reinterpret_cast<const uint8_t*>(last + std::u16string_view(last).size() + 1);
    EXPECT_EQ(end - reinterpret_cast<const uint8_t*>(answer.bytes.data()), answer.used);
}

TEST_F(StorageDependencyTest, TheHostVolumeIsNamedLikeTheVolumeThatHasTheLetter)
{
    machine_->FindDisk(0)->Gpt({.partitions = {{.start = kMiB, .length = 2 * kMiB}}});
    Volume& volume = *machine_->FindVolume(0, kMiB);
    machine_->AssignLetter(volume, u'V');
    machine_->MapDrive(u'V', folder_.Path().string());
    ASSERT_EQ(Create(Parameters(8 * kMiB), 0, 0, u"V:\\other.vhdx"), 0u);
    ASSERT_EQ(AttachForGood(), 0u);
    Answer answer(kUsualRoom);

    ASSERT_EQ(Ask(answer, u"\\??\\PhysicalDrive2"), 0u);

    const std::u16string name = answer.Entry(0).hostVolumeName;
    EXPECT_EQ(machine_->volumes.FindByPath(name).get(), &volume);
    EXPECT_EQ(std::u16string(answer.Entry(0).dependentVolumeRelativePath), u"\\other.vhdx");
}

TEST_F(StorageDependencyTest, AnOverlayNamesItselfBeforeWhatItStandsOn)
{
    ASSERT_EQ(Unmount(), 0u);
    const std::filesystem::path overlay = folder_.Path() / "overlay.avhdx";
    ASSERT_EQ(CreateOverlay(overlay, ImageFile()), 0u);
    ASSERT_EQ(AttachForGood(), 0u);
    Answer answer(kUsualRoom);

    ASSERT_EQ(Ask(answer), 0u);

    ASSERT_EQ(answer.Head().numberEntries, 2u);
    EXPECT_TRUE(std::u16string_view(answer.Entry(0).dependentVolumeRelativePath).ends_with(u"\\overlay.avhdx"));
    EXPECT_TRUE(std::u16string_view(answer.Entry(1).dependentVolumeRelativePath).ends_with(u"\\image.vhdx"));
    EXPECT_EQ(answer.Entry(0).ancestorLevel, 1u);
    EXPECT_EQ(answer.Entry(1).ancestorLevel, 2u);
    EXPECT_EQ(answer.Entry(1).dependencyTypeFlags, 0x104u);
}

TEST_F(StorageDependencyTest, ATooSmallAnswerIsToldTheSizeThatThenSuffices)
{
    Answer tooSmall(kUsualRoom);
    deviation_.texts = Texts(u"\\" + std::u16string(4000, u'x'));

    ASSERT_EQ(Ask(tooSmall), 122u);

    EXPECT_GT(tooSmall.used, 8000u);
    EXPECT_EQ(tooSmall.Head().numberEntries, 0u);
    Answer oneShort(tooSmall.used - 1);
    EXPECT_EQ(Ask(oneShort), 122u);
    Answer right(tooSmall.used);
    ASSERT_EQ(Ask(right), 0u);
    EXPECT_EQ(std::u16string_view(right.Entry(0).dependentVolumeRelativePath).size(), 4001u);
}

TEST_F(StorageDependencyTest, TheQueryMayRefuseAsOftenAsItLikesAndTellAnySize)
{
    Answer answer(kUsualRoom);
    deviation_.refusals = 2;
    deviation_.neededBytes = 17;

    EXPECT_EQ(Ask(answer), 122u);
    EXPECT_EQ(answer.used, 17u);
    EXPECT_EQ(Ask(answer), 122u);
    EXPECT_EQ(Ask(answer), 0u);
    EXPECT_EQ(answer.Head().numberEntries, 1u);

    deviation_.texts = Texts(std::u16string(4000, u'x'));
    deviation_.neededBytes = 0xFFFFFFFF;
    EXPECT_EQ(Ask(answer), 122u);
    EXPECT_EQ(answer.used, 0xFFFFFFFFu);
}

TEST_F(StorageDependencyTest, AnyTextMayBeMissingOrEmpty)
{
    Answer answer(kUsualRoom);
    deviation_.texts = DependencyTexts{.hostVolumeName = u""};

    ASSERT_EQ(Ask(answer), 0u);

    EXPECT_EQ(answer.Entry(0).dependencyDeviceName, nullptr);
    ASSERT_NE(answer.Entry(0).hostVolumeName, nullptr);
    EXPECT_EQ(answer.Entry(0).hostVolumeName[0], u'\0');
    EXPECT_EQ(answer.Entry(0).dependentVolumeRelativePath, nullptr);
}

TEST_F(StorageDependencyTest, TheAnswerMayBeEmptyOrAnError)
{
    Answer answer(kUsualRoom);
    deviation_.hasNoEntries = true;
    EXPECT_EQ(Ask(answer), 0u);
    EXPECT_EQ(answer.Head().numberEntries, 0u);
    EXPECT_EQ(answer.used, 8u);

    deviation_.failure = 1117;
    EXPECT_EQ(Ask(answer), 1117u);
}

TEST_F(StorageDependencyTest, OnlyAnAttachedImagesDiskHasDependencies)
{
    Answer answer(kUsualRoom);
    const Handle disk(u"\\??\\PhysicalDrive1", kForAttributes);
    EXPECT_EQ(Ask(answer, u"\\??\\PhysicalDrive0"), 0xC03A0015);
    EXPECT_EQ(Ask(answer, u"\\Device\\MountPointManager"), 0xC03A0015);

    ASSERT_EQ(Unmount(), 0u);
    EXPECT_EQ(Entry<kk::GetStorageDependencyInformationFn>("GetStorageDependencyInformation")(
                  disk.value, kFlags, answer.size, &answer.Head(), &answer.used),
              0xC03A0015);
    EXPECT_EQ(answer.used, 0xEEEEEEEE);
}

TEST_F(StorageDependencyTest, QuestionsThatMakeNoSenseAreRefused)
{
    const auto query = Entry<kk::GetStorageDependencyInformationFn>("GetStorageDependencyInformation");
    const Handle disk(u"\\??\\PhysicalDrive1", kForAttributes);
    Answer answer(kUsualRoom);
    Answer old(kUsualRoom, 1);
    Answer tiny(7);

    EXPECT_EQ(Ask(old), 87u);
    EXPECT_EQ(Ask(answer, u"\\??\\PhysicalDrive1", 7), 87u);
    EXPECT_EQ(Ask(answer, u"\\??\\PhysicalDrive1", 1), 50u);
    EXPECT_EQ(Ask(tiny), 122u);
    EXPECT_EQ(tiny.used, 8u);
    EXPECT_EQ(query(disk.value, kFlags, kUsualRoom, nullptr, &answer.used), 87u);
    EXPECT_EQ(query(disk.value, kFlags, kUsualRoom, &answer.Head(), nullptr), 87u);
    EXPECT_EQ(query(nullptr, kFlags, kUsualRoom, &answer.Head(), &answer.used), 6u);
}

TEST_F(StorageDependencyTest, TheQueryIsInTheJournalAndCanFail)
{
    Answer answer(kUsualRoom);
    machine_->faults.Fail({.name = "GetStorageDependencyInformation"}, 1, 5);

    EXPECT_EQ(Ask(answer), 5u);

    const CallRecord* const query = machine_->journal.First({.name = "GetStorageDependencyInformation"});
    ASSERT_NE(query, nullptr);
    EXPECT_EQ(query->object, "\\??\\PhysicalDrive1");
    EXPECT_EQ(query->options, kFlags);
    EXPECT_EQ(query->length, kUsualRoom);
}

}  // namespace
}  // namespace machine
