#include "machine/virtual_disk_service.h"

#include <gtest/gtest.h>

#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "machine/memory_virtual_disks.h"
#include "virtual_disk_fixture.h"

namespace machine {
namespace {

using test::kBlockBytes;
using test::kMiB;
using test::VirtualDiskTest;

/// A machine whose images live in memory.
class MemoryDiskTest : public VirtualDiskTest {
protected:
    std::shared_ptr<MemoryVirtualDisks> images_ = std::make_shared<MemoryVirtualDisks>();
    VirtualDiskService& service_ = InstallVirtualDiskService(*machine_, images_);
};

TEST_F(VirtualDiskTest, TheLibraryIsMissingUntilItIsInstalled)
{
    EXPECT_EQ(machine_->modules.Load(u"virtdisk.dll"), nullptr);
}

TEST_F(MemoryDiskTest, AnAttachedImageIsTheNextDisk)
{
    ASSERT_EQ(Create(Parameters(64 * kMiB)), 0u);
    ASSERT_EQ(Attach(), 0u);

    Disk* const disk = machine_->FindDisk(1);
    ASSERT_NE(disk, nullptr);
    EXPECT_EQ(disk->Size(), 64 * kMiB);
    EXPECT_EQ(disk->SectorSize(), 512u);
    EXPECT_EQ(service_.DiskNumberOf(ImageFile()), 1u);

    EXPECT_EQ(Detach(), 0u);
    EXPECT_EQ(machine_->FindDisk(1), nullptr);
    Close();
}

TEST_F(MemoryDiskTest, TheDiskNumberLiesAboveAllOthers)
{
    machine_->AddDisk(kMiB, {.number = 7});
    ASSERT_EQ(Create(Parameters(8 * kMiB)), 0u);
    ASSERT_EQ(Attach(), 0u);

    EXPECT_EQ(service_.DiskNumberOf(ImageFile()), 8u);
    Close();
}

TEST_F(MemoryDiskTest, ADiskThatIsNotPermanentGoesWithItsHandle)
{
    ASSERT_EQ(Create(Parameters(8 * kMiB)), 0u);
    ASSERT_EQ(Attach(), 0u);

    Close();

    EXPECT_EQ(machine_->FindDisk(1), nullptr);
}

TEST_F(MemoryDiskTest, APermanentDiskOutlivesItsHandle)
{
    const kk::AttachVirtualDiskParameters parameters = {.version = 1, .reserved4 = 0, .reserved8 = {}};
    ASSERT_EQ(Create(Parameters(8 * kMiB)), 0u);
    ASSERT_EQ(Attach(kk::kAttachVirtualDiskFlagPermanentLifetime, &parameters), 0u);

    Close();

    EXPECT_NE(machine_->FindDisk(1), nullptr);
}

TEST_F(MemoryDiskTest, BytesStayBehindAfterDetaching)
{
    ASSERT_EQ(Create(Parameters(64 * kMiB)), 0u);
    ASSERT_EQ(Attach(), 0u);
    const std::vector<uint8_t> sector(512, 0x5A);
    ASSERT_EQ(machine_->FindDisk(1)->Write(10 * kMiB, sector), 0);
    ASSERT_TRUE(machine_->FindDisk(1)->Flush());
    ASSERT_EQ(Detach(), 0u);
    Close();

    const auto bytes = images_->ImageBytes(ImageFile());
    ASSERT_NE(bytes, nullptr);
    std::vector<uint8_t> read(512);
    ASSERT_TRUE(bytes->Read(10 * kMiB, read));
    EXPECT_EQ(read, sector);
    EXPECT_EQ(bytes->FlushCount(), 1u);
    EXPECT_EQ(bytes->WrittenBlocks(), std::vector<uint64_t>{5});
    EXPECT_EQ(images_->ImageShape(ImageFile())->blockBytes, kBlockBytes);
    EXPECT_FALSE(std::filesystem::exists(ImageFile()));
}

TEST_F(MemoryDiskTest, WrittenRangesAreExactAndMerged)
{
    ASSERT_EQ(Create(Parameters(64 * kMiB)), 0u);
    ASSERT_EQ(Attach(), 0u);
    Disk& disk = *machine_->FindDisk(1);
    const std::vector<uint8_t> data(1024);
    for (const uint64_t offset : std::vector<uint64_t>{4096, 8192, 5120, 512, 4096, 6144}) {
        ASSERT_EQ(disk.Write(offset, data), 0);
    }
    Close();

    const auto bytes = images_->ImageBytes(ImageFile());
    const std::vector<RangeList::Range> expected = {{512, 1536}, {4096, 7168}, {8192, 9216}};
    EXPECT_EQ(bytes->Written().All(), expected);
    EXPECT_EQ(bytes->Written().TotalBytes(), 5120u);
    EXPECT_TRUE(bytes->Written().Intersects(0, 513));
    EXPECT_FALSE(bytes->Written().Intersects(0, 512));
    EXPECT_FALSE(bytes->Written().Intersects(7168, 1024));
    EXPECT_TRUE(bytes->Written().Intersects(7167, 1));
    EXPECT_EQ(bytes->WriteSizes(), std::vector<uint64_t>(6, 1024));
}

TEST_F(MemoryDiskTest, SectorsOf4096BytesAreEnforced)
{
    ASSERT_EQ(Create(Parameters(64 * kMiB, 4096)), 0u);
    ASSERT_EQ(Attach(), 0u);
    Disk& disk = *machine_->FindDisk(1);

    EXPECT_EQ(disk.SectorSize(), 4096u);
    EXPECT_NE(disk.Write(0, std::vector<uint8_t>(512)), 0);
    EXPECT_EQ(disk.Write(0, std::vector<uint8_t>(4096)), 0);
    Close();
}

TEST_F(MemoryDiskTest, TheDiskAnswersToItsPhysicalPath)
{
    ASSERT_EQ(Create(Parameters(8 * kMiB)), 0u);
    ASSERT_EQ(Attach(), 0u);
    char16_t text[512] = {};
    uint32_t size = sizeof(text);

    EXPECT_EQ(PhysicalPath(size, text), 0u);

    EXPECT_EQ(std::u16string(text), u"\\\\.\\PhysicalDrive1");
    EXPECT_EQ(size, 19 * sizeof(char16_t));
    Close();
}

TEST_F(MemoryDiskTest, ATooSmallBufferIsToldTheSize)
{
    ASSERT_EQ(Create(Parameters(8 * kMiB)), 0u);
    ASSERT_EQ(Attach(), 0u);
    char16_t text[18] = {u'#'};
    uint32_t size = sizeof(text);

    EXPECT_EQ(PhysicalPath(size, text), 122u);

    EXPECT_EQ(size, 38u);
    EXPECT_EQ(text[0], u'#');
    Close();
}

TEST_F(MemoryDiskTest, TheToldPathCanBeAnything)
{
    ASSERT_EQ(Create(Parameters(8 * kMiB)), 0u);
    ASSERT_EQ(Attach(), 0u);
    std::u16string text(64, u'#');
    uint32_t size = 128;
    service_.behaviour.physicalPath = u"no digits";
    service_.behaviour.terminatesPath = false;

    EXPECT_EQ(PhysicalPath(size, text.data()), 0u);

    EXPECT_EQ(text.substr(0, 11), u"no digits##");
    Close();
}

TEST_F(MemoryDiskTest, CallsInTheWrongOrderHaveTheirOwnErrors)
{
    char16_t text[64];
    uint32_t size = sizeof(text);
    ASSERT_EQ(Create(Parameters(8 * kMiB)), 0u);

    EXPECT_EQ(Detach(), kErrorNotReady);
    EXPECT_EQ(PhysicalPath(size, text), kErrorDeviceNotExist);
    EXPECT_EQ(Attach(), 0u);
    EXPECT_EQ(Attach(), kErrorSharingViolation);
    EXPECT_EQ(Detach(1), kErrorInvalidParameter);
    EXPECT_EQ(Detach(), 0u);
    EXPECT_EQ(Detach(), kErrorNotReady);
    Close();
    EXPECT_EQ(Attach(), kErrorInvalidHandle);
    EXPECT_EQ(Detach(), kErrorInvalidHandle);
    EXPECT_EQ(PhysicalPath(size, text), kErrorInvalidHandle);
}

TEST_F(MemoryDiskTest, ADetachedImageCanBeAttachedAgain)
{
    ASSERT_EQ(Create(Parameters(8 * kMiB)), 0u);
    ASSERT_EQ(Attach(), 0u);
    ASSERT_EQ(machine_->FindDisk(1)->Write(512, std::vector<uint8_t>(512, 9)), 0);
    ASSERT_EQ(Detach(), 0u);

    ASSERT_EQ(Attach(kAttachVirtualDiskFlagReadOnly), 0u);

    EXPECT_EQ(machine_->FindDisk(1)->ReadBytes(512, 1)[0], 9);
    EXPECT_NE(machine_->FindDisk(1)->Write(512, std::vector<uint8_t>(512)), 0);
    Close();
}

TEST_F(MemoryDiskTest, WrongParametersAreRefused)
{
    const auto with = [](auto change) {
        kk::CreateVirtualDiskParameters parameters = Parameters(64 * kMiB);
        change(parameters);
        return parameters;
    };
    const std::vector<kk::CreateVirtualDiskParameters> wrong = {
        with([](auto& p) { p.version = 1; }),
        with([](auto& p) { p.maximumSize = 0; }),
        with([](auto& p) { p.maximumSize = 64 * kMiB + 256; }),
        with([](auto& p) { p.maximumSize = (64ull << 40) + 512; }),
        with([](auto& p) { p.sectorSizeInBytes = 520; }),
        with([](auto& p) { p.sectorSizeInBytes = 2048; }),
        with([](auto& p) { p.blockSizeInBytes = 1 << 19; }),
        with([](auto& p) { p.blockSizeInBytes = 257 << 20; }),
        with([](auto& p) { p.physicalSectorSizeInBytes = 100; }),
        with([](auto& p) { p.openFlags = 1; }),
    };
    for (size_t index = 0; index < wrong.size(); ++index) {
        EXPECT_EQ(Create(wrong[index]), kErrorInvalidParameter) << index;
    }
    EXPECT_EQ(Create(Parameters(64 * kMiB), 1), kErrorInvalidParameter);
    EXPECT_EQ(Create(Parameters(64 * kMiB), 0, 1), kErrorInvalidParameter);
    EXPECT_EQ(Create(with([](auto& p) { p.sourcePath = u"Z:\\source.vhdx"; })), kErrorNotSupported);
    storageType_.deviceId = 2;
    EXPECT_EQ(Create(Parameters(64 * kMiB)), kErrorVirtualDiskProviderNotFound);
    EXPECT_EQ(machine_->handles.OpenCount(), 0u);
}

TEST_F(MemoryDiskTest, MissingPointersAreRefused)
{
    const auto create = Entry<kk::CreateVirtualDiskFn>("CreateVirtualDisk");
    const auto parameters = Parameters(8 * kMiB);
    const char16_t* const path = u"Z:\\tmp\\never.vhdx";

    EXPECT_EQ(create(nullptr, path, 0, nullptr, 0, 0, &parameters, nullptr, &handle_), kErrorInvalidParameter);
    EXPECT_EQ(create(&storageType_, nullptr, 0, nullptr, 0, 0, &parameters, nullptr, &handle_), kErrorInvalidParameter);
    EXPECT_EQ(create(&storageType_, path, 0, nullptr, 0, 0, nullptr, nullptr, &handle_), kErrorInvalidParameter);
    EXPECT_EQ(create(&storageType_, path, 0, nullptr, 0, 0, &parameters, nullptr, nullptr), kErrorInvalidParameter);
}

TEST_F(MemoryDiskTest, DefaultsAreFilledIn)
{
    auto parameters = Parameters(64 * kMiB, 0);
    parameters.blockSizeInBytes = 0;
    parameters.physicalSectorSizeInBytes = 0;

    ASSERT_EQ(Create(parameters), 0u);

    EXPECT_EQ(images_->ImageShape(ImageFile())->sectorBytes, 512u);
    EXPECT_EQ(images_->ImageShape(ImageFile())->blockBytes, 32u << 20);
    Close();
}

TEST_F(MemoryDiskTest, TheMinimumSizeHoldsWhenItIsSwitchedOn)
{
    machine_->switches.minimumVirtualDiskSize = true;

    EXPECT_EQ(Create(Parameters(3 * kMiB - 512)), kErrorInvalidParameter);
    EXPECT_EQ(Create(Parameters(3 * kMiB)), 0u);
    Close();
}

TEST_F(MemoryDiskTest, AnImageBelowTheMinimumIsMadeOtherwise)
{
    EXPECT_EQ(Create(Parameters(kMiB + 33 * 512)), 0u);
    Close();
}

TEST_F(MemoryDiskTest, PathsThatDoNotServeHaveTheirOwnErrors)
{
    std::ofstream(folder_.Path() / "taken.vhdx") << "something";
    const std::u16string folder = HostDrives::WindowsPath(folder_.Path().string());

    EXPECT_EQ(Create(Parameters(8 * kMiB), 0, 0, folder + u"\\taken.vhdx"), kErrorFileExists);
    EXPECT_EQ(Create(Parameters(8 * kMiB), 0, 0, folder + u"\\missing\\image.vhdx"), kErrorPathNotFound);
    EXPECT_EQ(Create(Parameters(8 * kMiB), 0, 0, u"Q:\\image.vhdx"), kErrorPathNotFound);
    EXPECT_EQ(Create(Parameters(8 * kMiB)), 0u);
    Close();
    EXPECT_EQ(Create(Parameters(8 * kMiB)), kErrorFileExists);
    images_->Remove(ImageFile());
    EXPECT_EQ(Create(Parameters(8 * kMiB)), 0u);
    Close();
}

TEST_F(MemoryDiskTest, PathsGoThroughTheDriveMapping)
{
    machine_->MapDrive(u'I', folder_.Path().string());

    ASSERT_EQ(Create(Parameters(8 * kMiB), 0, 0, u"I:/image.vhdx"), 0u);

    EXPECT_NE(images_->ImageBytes(ImageFile()), nullptr);
    Close();
}

TEST_F(MemoryDiskTest, EveryCallIsInTheJournal)
{
    ASSERT_EQ(Create(Parameters(8 * kMiB)), 0u);
    ASSERT_EQ(Attach(), 0u);
    ASSERT_EQ(Detach(), 0u);
    Close();

    const CallRecord* const creation = machine_->journal.First({.name = "CreateVirtualDisk"});
    ASSERT_NE(creation, nullptr);
    EXPECT_EQ(creation->length, 8 * kMiB);
    EXPECT_EQ(creation->input.size(), sizeof(kk::CreateVirtualDiskParameters));
    EXPECT_NE(creation->object.find("image.vhdx"), std::string::npos);
    EXPECT_EQ(machine_->journal.First({.name = "AttachVirtualDisk"})->options, 2u);
    EXPECT_TRUE(machine_->journal.Before({.name = "DetachVirtualDisk"}, {.name = "NtClose"}));
}

TEST_F(MemoryDiskTest, AFaultKeepsTheCallFromHappening)
{
    ASSERT_EQ(Create(Parameters(8 * kMiB)), 0u);
    machine_->faults.Fail({.name = "AttachVirtualDisk"}, 1, 1314);

    EXPECT_EQ(Attach(), 1314u);

    EXPECT_EQ(machine_->FindDisk(1), nullptr);
    EXPECT_EQ(Attach(), 0u);
    Close();
}

TEST_F(MemoryDiskTest, AnAttachedDiskMayNotTellItsPathOrRefuseToGo)
{
    char16_t text[64];
    uint32_t size = sizeof(text);
    service_.behaviour = {.detachFailure = 31, .pathFailure = 5};
    ASSERT_EQ(Create(Parameters(8 * kMiB)), 0u);

    EXPECT_EQ(Attach(), 0u);
    EXPECT_EQ(PhysicalPath(size, text), 5u);
    EXPECT_EQ(Detach(), 31u);

    EXPECT_NE(machine_->FindDisk(1), nullptr);
    Close();
    EXPECT_EQ(machine_->FindDisk(1), nullptr);
}

TEST_F(MemoryDiskTest, AHandleThatIsLeftOpenIsABreach)
{
    ASSERT_EQ(Create(Parameters(8 * kMiB)), 0u);
    machine_.reset();

    EXPECT_EQ(breaches_.size(), 1u);
    breaches_.clear();
}

}  // namespace
}  // namespace machine
