#include <fstream>
#include <memory>

#include "machine/memory_virtual_disks.h"
#include "machine/virtual_disk_service.h"
#include "tests/machine/native_calls.h"
#include "virtual_disk_fixture.h"

namespace machine {
namespace {

using test::VirtualDiskTest;

constexpr uint32_t kDetach = kk::kVirtualDiskAccessDetach;

/// A machine with one image in memory that nobody uses.
class OpeningTest : public VirtualDiskTest {
protected:
    OpeningTest()
    {
        EXPECT_EQ(Create(Parameters(16 * kMiB)), 0u);
        Close();
    }

    std::filesystem::path Path(const std::string& name) const { return folder_.Path() / name; }
    uint32_t OpenAs(const kk::VirtualStorageType& type, uint32_t access = kMountAccess, uint32_t flags = 0,
                    const void* parameters = nullptr)
    {
        const std::u16string path = HostDrives::WindowsPath(ImageFile().string());
        return Entry<kk::OpenVirtualDiskFn>("OpenVirtualDisk")(&type, path.c_str(), access, flags, parameters,
                                                               &handle_);
    }

    std::shared_ptr<MemoryVirtualDisks> images_ = std::make_shared<MemoryVirtualDisks>();
    VirtualDiskService& service_ = InstallVirtualDiskService(*machine_, images_);
};

TEST_F(OpeningTest, AnImageThatExistsIsOpenedAndAttached)
{
    char16_t text[64] = {};
    uint32_t size = sizeof(text);

    ASSERT_EQ(Open(), 0u);
    ASSERT_EQ(Attach(kk::kAttachVirtualDiskFlagPermanentLifetime), 0u);

    EXPECT_EQ(PhysicalPath(size, text), 0u);
    EXPECT_EQ(std::u16string(text), u"\\\\.\\PhysicalDrive1");
    EXPECT_EQ(machine_->FindDisk(1)->Size(), 16 * kMiB);
    Close();
}

TEST_F(OpeningTest, TheTypeIsStatedOrLeftToTheService)
{
    EXPECT_EQ(OpenAs(storageType_), 0u);
    Close();
    EXPECT_EQ(OpenAs({}), 0u);
    Close();

    EXPECT_EQ(OpenAs({.deviceId = 2, .vendorId = kk::kVirtualStorageTypeVendorMicrosoft}), 0xC03A0014);
    EXPECT_EQ(OpenAs({.deviceId = 3, .vendorId = {}}), 0xC03A0014);
    EXPECT_EQ(OpenAs({.deviceId = 0, .vendorId = kk::kVirtualStorageTypeVendorMicrosoft}), 0xC03A0014);
}

TEST_F(OpeningTest, ArgumentsThatMakeNoSenseAreRefused)
{
    const auto open = Entry<kk::OpenVirtualDiskFn>("OpenVirtualDisk");
    const char16_t* const path = u"Z:\\tmp\\never.vhdx";
    const uint64_t parameters = 1;

    EXPECT_EQ(open(nullptr, path, kMountAccess, 0, nullptr, &handle_), 87u);
    EXPECT_EQ(open(&storageType_, nullptr, kMountAccess, 0, nullptr, &handle_), 87u);
    EXPECT_EQ(open(&storageType_, path, kMountAccess, 0, nullptr, nullptr), 87u);
    EXPECT_EQ(OpenAs({}, 0), 87u);
    EXPECT_EQ(OpenAs({}, 0x400000), 87u);
    EXPECT_EQ(OpenAs({}, kMountAccess, 1), 87u);
    EXPECT_EQ(OpenAs({}, kMountAccess, 0, &parameters), 50u);
    EXPECT_EQ(handle_, nullptr);
}

TEST_F(OpeningTest, FilesThatAreNoImagesHaveTheirOwnErrors)
{
    std::ofstream(Path("text.vhdx")) << "nothing";
    std::ofstream(Path("damaged.vhdx")) << "vhdxfile and nothing else";

    EXPECT_EQ(Open(kMountAccess, Path("missing.vhdx")), 2u);
    EXPECT_EQ(Open(kMountAccess, Path("missing") / "image.vhdx"), 3u);
    EXPECT_EQ(Open(kMountAccess, folder_.Path()), 5u);
    EXPECT_EQ(Open(kMountAccess, Path("text.vhdx")), 0xC03A0004);
    EXPECT_EQ(Open(kMountAccess, Path("damaged.vhdx")), 1392u);
    EXPECT_EQ(handle_, nullptr);
}

TEST_F(OpeningTest, AHandleDoesOnlyWhatItWasOpenedFor)
{
    char16_t text[64];
    uint32_t size = sizeof(text);

    ASSERT_EQ(Open(kk::kVirtualDiskAccessGetInfo), 0u);
    EXPECT_EQ(Attach(), 5u);
    Close();
    ASSERT_EQ(Open(kVirtualDiskAccessAttachRo), 0u);
    EXPECT_EQ(Attach(), 5u);
    EXPECT_EQ(Attach(kAttachVirtualDiskFlagReadOnly), 0u);
    EXPECT_EQ(PhysicalPath(size, text), 5u);
    EXPECT_EQ(Detach(), 5u);
    Close();
    ASSERT_EQ(Open(kDetach), 0u);
    EXPECT_EQ(PhysicalPath(size, text), 5u);
    EXPECT_EQ(Detach(), 21u);
    Close();
}

TEST_F(OpeningTest, AnAttachedImageOpensForDetachingAlone)
{
    ASSERT_EQ(Open(), 0u);
    ASSERT_EQ(AttachForGood(), 0u);

    EXPECT_EQ(Open(), 32u);
    ASSERT_EQ(Open(kMountAccess | kDetach), 0u);
    EXPECT_EQ(Attach(), 32u);
    Close();
    EXPECT_NE(machine_->FindDisk(1), nullptr);
    EXPECT_EQ(Unmount(), 0u);
    EXPECT_EQ(machine_->FindDisk(1), nullptr);
    EXPECT_EQ(Unmount(), 21u);
}

TEST_F(OpeningTest, TheServiceListsTheImagesThatAreAttached)
{
    EXPECT_TRUE(service_.AttachedImages().empty());
    ASSERT_EQ(Open(), 0u);
    EXPECT_TRUE(service_.AttachedImages().empty());
    ASSERT_EQ(AttachForGood(), 0u);

    EXPECT_EQ(service_.AttachedImages(), std::vector{ImageFile()});

    ASSERT_EQ(Unmount(), 0u);
    EXPECT_TRUE(service_.AttachedImages().empty());
}

TEST_F(OpeningTest, VolumesArriveWithTheDiskAndLettersWhenBothSidesWantThem)
{
    ASSERT_EQ(Open(), 0u);
    ASSERT_EQ(Attach(), 0u);
    machine_->FindDisk(1)->Gpt({.partitions = {{.start = kMiB, .length = 4 * kMiB}}});
    Close();
    ASSERT_EQ(machine_->FindVolume(1, kMiB), nullptr);
    const auto letterAfter = [&](uint32_t flags) {
        EXPECT_EQ(Open(), 0u);
        EXPECT_EQ(AttachForGood(flags), 0u);
        const Volume* const volume = machine_->FindVolume(1, kMiB);
        const std::optional<char16_t> letter = volume != nullptr ? volume->Letter() : u'?';
        EXPECT_EQ(Unmount(), 0u);
        return letter;
    };

    EXPECT_EQ(letterAfter(0), std::nullopt);
    machine_->volumes.SetAutomaticLetters(true);
    EXPECT_EQ(letterAfter(0), u'C');
    EXPECT_EQ(letterAfter(kk::kAttachVirtualDiskFlagNoDriveLetter), std::nullopt);
    EXPECT_EQ(machine_->FindVolume(1, kMiB), nullptr);
}

TEST_F(OpeningTest, VolumesOfAnAttachedImageMayArriveLate)
{
    ASSERT_EQ(Open(), 0u);
    ASSERT_EQ(Attach(), 0u);
    machine_->FindDisk(1)->Gpt({.partitions = {{.start = kMiB, .length = 4 * kMiB}}});
    Close();
    machine_->switches.volumeArrivalDelay = 3;

    ASSERT_EQ(Open(), 0u);
    ASSERT_EQ(AttachForGood(), 0u);

    EXPECT_EQ(machine_->FindVolume(1, kMiB), nullptr);
    EXPECT_EQ(Open(), 32u);
    EXPECT_EQ(Open(), 32u);
    EXPECT_NE(machine_->FindVolume(1, kMiB), nullptr);
}

TEST_F(OpeningTest, AnImageWhoseDiskIdentityIsOnlineMayArriveWithoutVolumes)
{
    const GptTable table = {.partitions = {{.start = kMiB, .length = 2 * kMiB}}};
    machine_->FindDisk(0)->Gpt(table);
    ASSERT_EQ(Open(), 0u);
    ASSERT_EQ(Attach(), 0u);
    machine_->FindDisk(1)->Gpt(table);
    Close();
    machine_->switches.diskIdentityCollisions = true;

    ASSERT_EQ(Open(), 0u);
    ASSERT_EQ(AttachForGood(), 0u);

    EXPECT_NE(machine_->FindDisk(1), nullptr);
    EXPECT_EQ(machine_->FindVolume(1, kMiB), nullptr);
}

TEST_F(OpeningTest, TypesMayBeKnownByTheFilesExtension)
{
    images_->Create({.file = Path("image.rec.avhdx"), .sizeBytes = kMiB, .blockBytes = kMiB, .sectorBytes = 512});
    ASSERT_EQ(Open(kDetach, Path("image.rec.avhdx")), 0u);
    Close();
    machine_->switches.virtualDisksByExtension = true;

    EXPECT_EQ(Open(kDetach, Path("image.rec.avhdx")), 0xC03A0014);
    EXPECT_EQ(Open(), 0u);
    Close();
}

TEST_F(OpeningTest, TheFileIsHeldWhileItsDiskMayBeWritten)
{
    std::ofstream(ImageFile()) << "on the host";
    const std::u16string name = u"\\??\\" + HostDrives::WindowsPath(ImageFile().string());
    const OpenHow toDelete = {.access = kDelete | kSynchronize, .share = 7, .options = 0x1060};
    ASSERT_EQ(Open(), 0u);
    EXPECT_EQ(Handle(name).created.status, kSuccess);
    ASSERT_EQ(AttachForGood(), 0u);

    EXPECT_EQ(Handle(name).created.status, kSharingViolation);
    EXPECT_EQ(Handle(name, toDelete).created.status, kSharingViolation);

    ASSERT_EQ(Unmount(), 0u);
    EXPECT_EQ(Handle(name, toDelete).created.status, kSuccess);
    EXPECT_FALSE(std::filesystem::exists(ImageFile()));
}

TEST_F(OpeningTest, TheFileOfAReadOnlyDiskCanBeReadButNotWritten)
{
    std::ofstream(ImageFile()) << "on the host";
    const std::u16string name = u"\\??\\" + HostDrives::WindowsPath(ImageFile().string());
    ASSERT_EQ(Open(), 0u);
    ASSERT_EQ(AttachForGood(kAttachVirtualDiskFlagReadOnly), 0u);

    EXPECT_EQ(Handle(name).Read(0, 11).information, 11u);
    EXPECT_EQ(Handle(name, kForWriting).created.status, kSharingViolation);
    EXPECT_NE(machine_->FindDisk(1)->Write(0, std::vector<uint8_t>(512)), 0);
}

TEST_F(OpeningTest, AFileThatOthersKeepToThemselvesIsNeitherOpenedNorAttached)
{
    std::ofstream(ImageFile()) << "on the host";
    const std::u16string name = u"\\??\\" + HostDrives::WindowsPath(ImageFile().string());
    Handle writer(name, {.access = kk::kFileGenericWrite, .share = 0});

    EXPECT_EQ(Open(), 32u);
    writer.Close();
    const Handle reader(name);
    ASSERT_EQ(Open(), 0u);
    EXPECT_EQ(Attach(), 32u);
    Close();
    EXPECT_TRUE(service_.AttachedImages().empty());
}

TEST_F(OpeningTest, ContentsInMemoryStandInForAFileThatOnlyTheFileServicesRead)
{
    std::ofstream(Path("large-sectors.vhdx")) << "vhdxfile";
    images_->StandInFor(Path("large-sectors.vhdx"), 32 * kMiB, 4096).Write(4096, std::vector<uint8_t>(4096, 7));
    const std::u16string name = u"\\??\\" + HostDrives::WindowsPath(Path("large-sectors.vhdx").string());

    EXPECT_EQ(Handle(name).Read(0, 8).output, std::vector<uint8_t>({'v', 'h', 'd', 'x', 'f', 'i', 'l', 'e'}));
    ASSERT_EQ(Open(kMountAccess, Path("large-sectors.vhdx")), 0u);
    ASSERT_EQ(AttachForGood(), 0u);
    EXPECT_EQ(machine_->FindDisk(1)->SectorSize(), 4096u);
    EXPECT_EQ(machine_->FindDisk(1)->ReadBytes(4096, 1)[0], 7);
    ASSERT_EQ(Unmount(Path("large-sectors.vhdx")), 0u);

    std::filesystem::remove(Path("large-sectors.vhdx"));
    EXPECT_EQ(Open(kMountAccess, Path("large-sectors.vhdx")), 2u);
}

TEST_F(OpeningTest, OpeningIsInTheJournalAndCanFail)
{
    ASSERT_EQ(Open(kDetach), 0u);
    Close();
    const CallRecord* const opening = machine_->journal.First({.name = "OpenVirtualDisk"});
    ASSERT_NE(opening, nullptr);
    EXPECT_EQ(opening->access, kDetach);
    EXPECT_EQ(opening->code, 0u);
    EXPECT_NE(opening->object.find("image.vhdx"), std::string::npos);

    machine_->faults.Fail({.name = "OpenVirtualDisk"}, 1, 1314);
    machine_->faults.Fail({.name = "OpenVirtualDisk"}, 2, 0);
    EXPECT_EQ(Open(), 1314u);
    EXPECT_EQ(Open(), 0u) << "success without a handle";
    EXPECT_EQ(handle_, nullptr);
}

TEST_F(OpeningTest, EntryPointsCanBeTakenAwayOneByOne)
{
    machine_->modules.RemoveEntry(u"virtdisk.dll", "OpenVirtualDisk");

    EXPECT_EQ(Entry<kk::OpenVirtualDiskFn>("OpenVirtualDisk"), nullptr);
    EXPECT_NE(Entry<kk::GetStorageDependencyInformationFn>("GetStorageDependencyInformation"), nullptr);
    machine_->modules.RemoveEntry(u"virtdisk.dll", "GetStorageDependencyInformation");
    EXPECT_EQ(Entry<kk::GetStorageDependencyInformationFn>("GetStorageDependencyInformation"), nullptr);
}

}  // namespace
}  // namespace machine
