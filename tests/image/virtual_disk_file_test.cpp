#include "image/virtual_disk_file.h"

#include <memory>
#include <optional>

#include "machine/memory_virtual_disks.h"
#include "machine/virtual_disk_service.h"
#include "support/machine_test.h"
#include "support/scripted_virtdisk.h"
#include "support/shell.h"

namespace {

using Log = std::vector<std::string>;

class VirtualDiskFileTest : public MachineTest {
protected:
    KK_STATUS Create() { return file->Create(u"Z:\\folder\\image.vhdx", 64 * kMiB, 512, 0x200000); }

    ScriptedVirtdisk service{machine};
    std::optional<kk::VirtualDiskFile> file{std::in_place};
};

TEST_F(VirtualDiskFileTest, AFileIsCreatedWithTheseArguments)
{
    EXPECT_EQ(file->Create(u"Z:\\folder\\image.vhdx", 0x1122'3344'5566'7788, 4096, 0x200000), 0);

    EXPECT_EQ(service.log, Log{"Create 0 null 0 0 null"});
    EXPECT_EQ(service.createdPath, u"Z:\\folder\\image.vhdx");
    EXPECT_EQ(service.storageType.deviceId, 3u);
    EXPECT_EQ(machine::BracedGuid(service.storageType.vendorId), u"{ec984aec-a0f9-47e9-901f-71415a66345b}");
}

TEST_F(VirtualDiskFileTest, TheRecordOfACreationIsZeroButForItsFields)
{
    EXPECT_EQ(file->Create(u"x", 0x1122'3344'5566'7788, 0x0102, 0x03040506), 0);

    std::vector<uint8_t> expected(128);
    expected[0] = 2;
    const std::vector<uint8_t> sizes = {0x88, 0x77, 0x66, 0x55, 0x44, 0x33, 0x22, 0x11, 0x06, 0x05,
                                        0x04, 0x03, 0x02, 0x01, 0,    0,    0,    0x10, 0,    0};
    std::copy(sizes.begin(), sizes.end(), expected.begin() + 24);
    EXPECT_EQ(service.creation, expected);
}

TEST_F(VirtualDiskFileTest, EveryFailureOfCreationIsTheSame)
{
    for (const uint32_t error : {1u, 80u, 112u, 0xC03A0014u, 0x80000000u}) {
        service.createError = error;

        EXPECT_EQ(Create(), Status(0xC0000001));
    }
    EXPECT_EQ(file->Attach(), Status(0xC000000D));
}

TEST_F(VirtualDiskFileTest, AnAttachmentHasNoLetterAndNoParameters)
{
    ASSERT_EQ(Create(), 0);
    service.log.clear();

    EXPECT_EQ(file->Attach(), 0);
    EXPECT_EQ(service.log, (Log{"Attach image null 2 0 null null", "GetPath image 1024"}));
    EXPECT_EQ(std::u16string(file->PhysicalPath()), u"\\\\.\\PhysicalDrive12");
}

TEST_F(VirtualDiskFileTest, WithoutAFileNothingIsAttached)
{
    EXPECT_EQ(file->Attach(), Status(0xC000000D));
    EXPECT_TRUE(service.log.empty());
}

TEST_F(VirtualDiskFileTest, AFailingAttachmentLeavesNothingToDetach)
{
    ASSERT_EQ(Create(), 0);
    service.attachError = 32;
    service.log.clear();

    EXPECT_EQ(file->Attach(), Status(0xC0000001));
    EXPECT_EQ(file->Detach(), 0);
    EXPECT_EQ(service.log, Log{"Attach image null 2 0 null null"});

    file.reset();
    EXPECT_EQ(service.log.back(), "Close");
    EXPECT_EQ(service.log.size(), 2u);
}

TEST_F(VirtualDiskFileTest, AfterAFailingPathTheEndDetaches)
{
    ASSERT_EQ(Create(), 0);
    service.pathError = 122;

    EXPECT_EQ(file->Attach(), Status(0xC0000001));
    service.log.clear();
    file.reset();
    EXPECT_EQ(service.log, (Log{"Detach image 0 0", "Close"}));
}

TEST_F(VirtualDiskFileTest, AfterAFailingPathDetachingWorks)
{
    ASSERT_EQ(Create(), 0);
    service.pathError = 55;
    ASSERT_EQ(file->Attach(), Status(0xC0000001));
    service.log.clear();

    EXPECT_EQ(file->Detach(), 0);
    EXPECT_EQ(service.log, Log{"Detach image 0 0"});
}

TEST_F(VirtualDiskFileTest, APathWithoutATerminatorEndsWithItsBuffer)
{
    ASSERT_EQ(Create(), 0);
    service.path = std::u16string(512, u'p');
    service.terminates = false;

    EXPECT_EQ(file->Attach(), 0);
    EXPECT_EQ(std::u16string(file->PhysicalPath()), std::u16string(511, u'p'));
}

TEST_F(VirtualDiskFileTest, AShortPathWithoutATerminatorEndsWhereItWasWritten)
{
    ASSERT_EQ(Create(), 0);
    service.terminates = false;

    EXPECT_EQ(file->Attach(), 0);
    EXPECT_EQ(std::u16string(file->PhysicalPath()), u"\\\\.\\PhysicalDrive12");
}

TEST_F(VirtualDiskFileTest, DetachingHappensOnce)
{
    ASSERT_EQ(Create(), 0);
    ASSERT_EQ(file->Attach(), 0);
    service.log.clear();

    EXPECT_EQ(file->Detach(), 0);
    EXPECT_EQ(file->Detach(), 0);
    file.reset();
    EXPECT_EQ(service.log, (Log{"Detach image 0 0", "Close"}));
}

TEST_F(VirtualDiskFileTest, AFailingDetachmentCountsAsDone)
{
    ASSERT_EQ(Create(), 0);
    ASSERT_EQ(file->Attach(), 0);
    service.detachError = 21;
    service.log.clear();

    EXPECT_EQ(file->Detach(), Status(0xC0000001));
    EXPECT_EQ(file->Detach(), 0);
    file.reset();
    EXPECT_EQ(service.log, (Log{"Detach image 0 0", "Close"}));
}

TEST_F(VirtualDiskFileTest, TheEndDetachesAndClosesWhateverComesOfIt)
{
    ASSERT_EQ(Create(), 0);
    ASSERT_EQ(file->Attach(), 0);
    service.detachError = 21;
    service.log.clear();

    file.reset();
    EXPECT_EQ(service.log, (Log{"Detach image 0 0", "Close"}));
    EXPECT_EQ(machine.handles.OpenCount(), 0u);
}

TEST_F(VirtualDiskFileTest, WithoutAFileTheEndDoesNothing)
{
    EXPECT_EQ(file->Detach(), 0);
    file.reset();
    EXPECT_TRUE(service.log.empty());
    EXPECT_EQ(machine.journal.Count({.kind = machine::CallKind::Close}), 0u);
}

TEST_F(VirtualDiskFileTest, BeforeTheFirstBindingItIsAllTheSame)
{
    EXPECT_EQ(file->Attach(), Status(0xC000000D));
    EXPECT_EQ(file->Detach(), 0);
    file.reset();
    EXPECT_TRUE(machine.journal.Records().empty());
}

TEST(VirtualDiskServiceTest, AnImageIsADiskFromItsAttachmentToItsDetachment)
{
    machine::Machine machine;
    const TemporaryFolder folder;
    const auto images = std::make_shared<machine::MemoryVirtualDisks>();
    const machine::VirtualDiskService& service = machine::InstallVirtualDiskService(machine, images);
    machine.AddDisk(4 << 20);
    const std::filesystem::path image = folder / "image.vhdx";
    kk::VirtualDiskFile file;

    ASSERT_EQ(file.Create(WindowsPath(image).c_str(), 64 << 20, 4096, 0x200000), 0);
    EXPECT_EQ(images->ImageShape(image)->sizeBytes, 64u << 20);
    EXPECT_EQ(images->ImageShape(image)->sectorBytes, 4096u);
    EXPECT_EQ(images->ImageShape(image)->blockBytes, 0x200000u);

    ASSERT_EQ(file.Attach(), 0);
    EXPECT_EQ(std::u16string(file.PhysicalPath()), u"\\\\.\\PhysicalDrive1");
    EXPECT_EQ(machine.FindDisk(1)->SectorSize(), 4096u);
    EXPECT_EQ(service.DiskNumberOf(image), 1u);

    EXPECT_EQ(file.Detach(), 0);
    EXPECT_EQ(machine.FindDisk(1), nullptr);
}

}  // namespace
