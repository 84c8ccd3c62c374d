#include <fstream>
#include <memory>

#include "machine/host_tools.h"
#include "machine/image_format.h"
#include "machine/memory_virtual_disks.h"
#include "machine/qemu_virtual_disks.h"
#include "machine/raw_virtual_disks.h"
#include "machine/virtual_disk_service.h"
#include "support/shell.h"
#include "tests/machine/native_calls.h"
#include "virtual_disk_fixture.h"

namespace machine {
namespace {

using test::VirtualDiskTest;

/// A machine with one image that has a few bytes, nobody uses it, and an overlay is to stand on it.
class OverlayTest : public VirtualDiskTest {
protected:
    explicit OverlayTest(std::shared_ptr<VirtualDiskBackEnd> backEnd)
        : service_(InstallVirtualDiskService(*machine_, std::move(backEnd)))
    {
        EXPECT_EQ(Create(Parameters(16 * kMiB)), 0u);
        EXPECT_EQ(Attach(), 0u);
        machine_->FindDisk(1)->WriteBytes(5 * kMiB, std::vector<uint8_t>(4096, 0x11));
        Close();
    }

    void AttachOverlay()
    {
        ASSERT_EQ(CreateOverlay(Overlay(), ImageFile()), 0u);
        ASSERT_EQ(AttachForGood(), 0u);
    }
    void ExpectChangesOnTopOfTheParent() const
    {
        Disk& disk = *machine_->FindDisk(1);
        std::vector<uint8_t> expected(4096, 0x11);
        std::fill(expected.begin() + 512, expected.begin() + 1536, 0x22);
        EXPECT_EQ(disk.ReadBytes(5 * kMiB, 4096), expected);
        EXPECT_EQ(disk.ReadBytes(5 * kMiB + 1024, 512), std::vector<uint8_t>(512, 0x22));
        EXPECT_EQ(disk.ReadBytes(9 * kMiB, 1024), std::vector<uint8_t>(1024, 0x33));
        EXPECT_EQ(disk.ReadBytes(12 * kMiB, 512), std::vector<uint8_t>(512));
    }
    void WriteChanges() const
    {
        Disk& disk = *machine_->FindDisk(1);
        disk.WriteBytes(5 * kMiB + 512, std::vector<uint8_t>(1024, 0x22));
        disk.WriteBytes(9 * kMiB, std::vector<uint8_t>(1024, 0x33));
    }
    static std::u16string NtName(const std::filesystem::path& file)
    {
        return u"\\??\\" + HostDrives::WindowsPath(file.string());
    }
    /// Opens to delete, and closes.
    static Status DeleteFile(const std::filesystem::path& file)
    {
        return Handle(NtName(file), {.access = kDelete | kSynchronize, .share = 7, .options = 0x1060}).created.status;
    }
    std::filesystem::path Overlay() const { return folder_.Path() / "image.vhdx.rec.avhdx"; }

    VirtualDiskService& service_;
};

class MemoryOverlayTest : public OverlayTest {
protected:
    MemoryOverlayTest() : MemoryOverlayTest(std::make_shared<MemoryVirtualDisks>()) {}
    explicit MemoryOverlayTest(const std::shared_ptr<MemoryVirtualDisks>& images) : OverlayTest(images), images_(images)
    {
    }

    std::shared_ptr<MemoryVirtualDisks> images_;
};

class QemuOverlayTest : public OverlayTest {
protected:
    QemuOverlayTest() : OverlayTest(std::make_shared<QemuVirtualDisks>()) {}
};

TEST_F(MemoryOverlayTest, ChangesLieOnTopOfTheParentsBytes)
{
    AttachOverlay();
    EXPECT_EQ(machine_->FindDisk(1)->Size(), 16 * kMiB);
    WriteChanges();
    ExpectChangesOnTopOfTheParent();

    const std::vector<RangeList::Range> expected = {{5 * kMiB + 512, 5 * kMiB + 1536}, {9 * kMiB, 9 * kMiB + 1024}};
    EXPECT_EQ(images_->ImageBytes(Overlay())->Written().All(), expected);
}

TEST_F(MemoryOverlayTest, TheParentStaysAsItWas)
{
    const auto parent = images_->ImageBytes(ImageFile());
    const std::vector<uint64_t> writesBefore = parent->WriteSizes();
    AttachOverlay();
    WriteChanges();

    EXPECT_EQ(parent->WriteSizes(), writesBefore);
}

TEST_F(MemoryOverlayTest, ChangesAreThereAgainWhenTheOverlayIsOpenedAgain)
{
    AttachOverlay();
    WriteChanges();
    ASSERT_EQ(Unmount(Overlay()), 0u);
    ASSERT_EQ(Open(kMountAccess, Overlay()), 0u);
    ASSERT_EQ(AttachForGood(), 0u);

    ExpectChangesOnTopOfTheParent();
}

TEST_F(MemoryOverlayTest, TheOverlayHasItsParentsSectors)
{
    images_->StandInFor(folder_.Path() / "parent.vhdx", 8 * kMiB, 4096);
    std::ofstream(folder_.Path() / "parent.vhdx") << "vhdxfile";
    ASSERT_EQ(CreateOverlay(Overlay(), folder_.Path() / "parent.vhdx"), 0u);
    ASSERT_EQ(AttachForGood(), 0u);

    EXPECT_EQ(machine_->FindDisk(1)->SectorSize(), 4096u);
    EXPECT_EQ(machine_->FindDisk(1)->Size(), 8 * kMiB);
}

TEST_F(MemoryOverlayTest, AnOverlayStandsOnAnotherOne)
{
    AttachOverlay();
    WriteChanges();
    ASSERT_EQ(Unmount(Overlay()), 0u);
    const std::filesystem::path second = folder_.Path() / "second.avhdx";
    ASSERT_EQ(CreateOverlay(second, Overlay()), 0u);
    ASSERT_EQ(AttachForGood(), 0u);

    ExpectChangesOnTopOfTheParent();
    machine_->FindDisk(1)->WriteBytes(9 * kMiB, std::vector<uint8_t>(512, 0x44));
    EXPECT_EQ(machine_->FindDisk(1)->ReadBytes(9 * kMiB + 511, 2), std::vector<uint8_t>({0x44, 0x33}));
    EXPECT_EQ(DeleteFile(Overlay()), kSharingViolation) << "the one in between is held too";
    ASSERT_EQ(Open(), 0u);
    EXPECT_EQ(Attach(), 32u) << "and the one at the bottom";
    Close();
}

TEST_F(MemoryOverlayTest, TheOverlayGoesWithItsFile)
{
    AttachOverlay();
    EXPECT_EQ(DeleteFile(Overlay()), kSharingViolation);
    ASSERT_EQ(Unmount(Overlay()), 0u);
    EXPECT_EQ(DeleteFile(Overlay()), kSuccess);

    EXPECT_FALSE(std::filesystem::exists(Overlay()));
    EXPECT_EQ(images_->ImageBytes(Overlay()), nullptr);
    EXPECT_EQ(Unmount(Overlay()), 2u);
    AttachOverlay();
    EXPECT_EQ(machine_->FindDisk(1)->ReadBytes(9 * kMiB, 1)[0], 0) << "a new overlay begins anew";
}

TEST_F(MemoryOverlayTest, DataIsWhereTheParentOrTheOverlayHasSome)
{
    AttachOverlay();
    WriteChanges();
    OpenedImage opened;
    ASSERT_EQ(images_->Open(Overlay(), ImageAccess::ReadOnly, opened), 0u);

    const std::vector<Stretch> data = opened.storage->DataIn(kMiB, 14 * kMiB);

    ASSERT_EQ(data.size(), 2u);
    EXPECT_EQ(data[0].offset, 5 * kMiB);
    EXPECT_EQ(data[1].offset, 9 * kMiB);
    EXPECT_LE(data[0].length, 64 * kKiB);
}

TEST_F(MemoryOverlayTest, OverlaysThatCannotBeMadeHaveTheirOwnErrors)
{
    std::ofstream(folder_.Path() / "text.vhdx") << "nothing";
    std::ofstream(folder_.Path() / "taken.avhdx") << "left over";

    EXPECT_EQ(CreateOverlay(folder_.Path() / "taken.avhdx", ImageFile()), 80u);
    EXPECT_EQ(CreateOverlay(Overlay(), folder_.Path() / "missing.vhdx"), 2u);
    EXPECT_EQ(CreateOverlay(Overlay(), folder_.Path() / "missing" / "image.vhdx"), 3u);
    EXPECT_EQ(CreateOverlay(folder_.Path() / "missing" / "overlay.avhdx", ImageFile()), 3u);
    EXPECT_EQ(CreateOverlay(Overlay(), folder_.Path() / "text.vhdx"), 0xC03A0004);
    EXPECT_FALSE(std::filesystem::exists(Overlay()));
    AttachOverlay();
    EXPECT_EQ(CreateOverlay(Overlay(), ImageFile()), 80u);
}

TEST_F(MemoryOverlayTest, AnOverlayHasNoShapeOfItsOwn)
{
    const std::u16string parent = HostDrives::WindowsPath(ImageFile().string());
    const std::u16string path = HostDrives::WindowsPath(Overlay().string());
    const auto create = [&](auto change) {
        kk::CreateVirtualDiskParameters parameters = {};
        parameters.version = 2;
        parameters.parentPath = parent.c_str();
        change(parameters);
        return Create(parameters, 0, 0, path);
    };

    EXPECT_EQ(create([](auto& p) { p.maximumSize = 16 * kMiB; }), 87u);
    EXPECT_EQ(create([](auto& p) { p.blockSizeInBytes = 2 << 20; }), 87u);
    EXPECT_EQ(create([](auto& p) { p.sectorSizeInBytes = 512; }), 87u);
    EXPECT_EQ(create([](auto& p) { p.physicalSectorSizeInBytes = 4096; }), 87u);
    EXPECT_EQ(create([](auto& p) { p.openFlags = 1; }), 87u);
    EXPECT_EQ(create([](auto& p) { p.version = 1; }), 87u);
    EXPECT_EQ(create([](auto&) {}), 0u);
    Close();
}

TEST_F(MemoryOverlayTest, AnAttachedParentCarriesNoOverlayAndAnOverlaysParentIsNotAttachedToBeWritten)
{
    ASSERT_EQ(Open(), 0u);
    ASSERT_EQ(AttachForGood(), 0u);
    EXPECT_EQ(CreateOverlay(Overlay(), ImageFile()), 32u);
    ASSERT_EQ(Unmount(), 0u);

    AttachOverlay();
    ASSERT_EQ(Open(), 0u);
    EXPECT_EQ(Attach(), 32u);
    EXPECT_EQ(Attach(kAttachVirtualDiskFlagReadOnly), 0u);
    Close();
}

TEST_F(MemoryOverlayTest, AnOverlayWhoseParentIsGoneDoesNotOpen)
{
    AttachOverlay();
    ASSERT_EQ(Unmount(Overlay()), 0u);
    images_->Remove(ImageFile());

    EXPECT_EQ(Open(kMountAccess, Overlay()), 2u);
}

TEST_F(VirtualDiskTest, RawImagesCarryNoOverlays)
{
    InstallVirtualDiskService(*machine_, std::make_shared<RawVirtualDisks>());
    ASSERT_EQ(Create(Parameters(8 * kMiB)), 0u);
    Close();

    EXPECT_EQ(CreateOverlay(folder_.Path() / "overlay.avhdx", ImageFile()), 50u);
    ASSERT_EQ(Open(), 0u);
    EXPECT_EQ(AttachForGood(), 0u);
    EXPECT_EQ(Unmount(), 0u);
}

TEST_F(QemuOverlayTest, ChangesLieOnTopOfTheParentsBytesAndAreThereAgain)
{
    AttachOverlay();
    WriteChanges();
    ExpectChangesOnTopOfTheParent();
    ASSERT_EQ(Unmount(Overlay()), 0u);
    ASSERT_EQ(Open(kMountAccess, Overlay()), 0u);
    ASSERT_EQ(AttachForGood(), 0u);

    ExpectChangesOnTopOfTheParent();
}

TEST_F(QemuOverlayTest, TheParentsFileStaysAsItWas)
{
    const std::string before = ReadFile(ImageFile());
    AttachOverlay();
    WriteChanges();
    ASSERT_EQ(Unmount(Overlay()), 0u);

    EXPECT_TRUE(ReadFile(ImageFile()) == before);
    EXPECT_EQ(DeleteFile(Overlay()), kSuccess);
    EXPECT_FALSE(std::filesystem::exists(Overlay()));
}

TEST_F(QemuOverlayTest, TheParentCanBeReadButNotWrittenOrDeleted)
{
    AttachOverlay();

    EXPECT_EQ(Handle(NtName(ImageFile())).Read(0, 8).output,
              std::vector<uint8_t>({'v', 'h', 'd', 'x', 'f', 'i', 'l', 'e'}));
    EXPECT_EQ(Handle(NtName(ImageFile()), kForWriting).created.status, kSharingViolation);
    EXPECT_EQ(DeleteFile(ImageFile()), kSharingViolation);
    EXPECT_EQ(DeleteFile(Overlay()), kSharingViolation);
    ASSERT_EQ(Unmount(Overlay()), 0u);
    EXPECT_EQ(Handle(NtName(ImageFile()), kForWriting).created.status, kSuccess);
}

TEST_F(QemuOverlayTest, AnOverlayIsKnownByItsFileAlone)
{
    AttachOverlay();
    WriteChanges();
    ASSERT_EQ(Unmount(Overlay()), 0u);
    EXPECT_EQ(FormatOf(Overlay()), ImageFormat::Overlay);
    EXPECT_EQ(OverlayParent(Overlay()), ImageFile());
    EXPECT_EQ(FormatOf(ImageFile()), ImageFormat::Vhdx);

    InstallVirtualDiskService(*machine_, std::make_shared<QemuVirtualDisks>());
    ASSERT_EQ(Open(kMountAccess, Overlay()), 0u);
    ASSERT_EQ(AttachForGood(), 0u);
    ExpectChangesOnTopOfTheParent();
    EXPECT_EQ(DeleteFile(ImageFile()), kSharingViolation);
}

TEST_F(QemuOverlayTest, AnOverlayWhoseParentIsGoneDoesNotOpen)
{
    ASSERT_EQ(CreateOverlay(Overlay(), ImageFile()), 0u);
    Close();
    std::filesystem::remove(ImageFile());

    EXPECT_EQ(Open(kMountAccess, Overlay()), 2u);
}

TEST_F(QemuOverlayTest, ARealImageServesInMemoryToo)
{
    const auto images = std::make_shared<MemoryVirtualDisks>();
    InstallVirtualDiskService(*machine_, images);
    const std::string before = ReadFile(ImageFile());
    AttachOverlay();
    WriteChanges();

    ExpectChangesOnTopOfTheParent();
    ASSERT_EQ(Unmount(Overlay()), 0u);
    EXPECT_TRUE(ReadFile(ImageFile()) == before);
    EXPECT_EQ(images->ImageBytes(Overlay())->Written().TotalBytes(), 2048u);
}

TEST_F(QemuOverlayTest, AReadOnlyDiskLeavesTheImagesFileAsItIs)
{
    const std::string before = ReadFile(ImageFile());
    ASSERT_EQ(Open(kVirtualDiskAccessAttachRo), 0u);
    ASSERT_EQ(Attach(kAttachVirtualDiskFlagReadOnly), 0u);

    EXPECT_EQ(machine_->FindDisk(1)->ReadBytes(5 * kMiB, 512)[0], 0x11);
    EXPECT_EQ(Handle(NtName(ImageFile())).Read(0, 4).information, 4u);
    Close();
    EXPECT_TRUE(ReadFile(ImageFile()) == before);
}

}  // namespace
}  // namespace machine
