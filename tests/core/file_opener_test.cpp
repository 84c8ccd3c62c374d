#include "core/file_opener.h"

#include <optional>
#include <string>

#include "core/memory.h"
#include "core/nt.h"
#include "core/nt_device_file.h"
#include "support/hook.h"
#include "support/machine_test.h"
#include "support/scripted_device.h"

namespace kk {
namespace {

class FileOpenerTest : public MachineTest {
protected:
    FileOpenerTest() : device_(ScriptedDevice::AddTo(machine)) {}

    /// The one open that the machine has seen.
    machine::CallRecord OpenCall() const
    {
        const auto opens = machine.journal.FindAll({.kind = machine::CallKind::CreateFile});
        EXPECT_EQ(opens.size(), 1u);
        return opens.empty() ? machine::CallRecord{} : opens.front();
    }

    size_t CloseCount() const { return machine.journal.Count({.kind = machine::CallKind::Close}); }

    std::shared_ptr<ScriptedDevice> device_;
    DevicePtr file_;
};

TEST_F(FileOpenerTest, OpensForReadingSharedWithReadersAndWriters)
{
    EXPECT_EQ(OpenDevice(ScriptedDevice::kName, false, file_), KK_STATUS_SUCCESS);

    EXPECT_EQ(OpenCall().name, "NtCreateFile");
    EXPECT_EQ(OpenCall().object, "\\Device\\Scripted");
    EXPECT_EQ(OpenCall().access, 0x120089u);
    EXPECT_EQ(OpenCall().share, 3u);
    EXPECT_EQ(OpenCall().disposition, 1u);
    EXPECT_EQ(OpenCall().options, 0x860u);
    EXPECT_EQ(OpenCall().fileAttributes, 0x80u);
    EXPECT_EQ(OpenCall().objectAttributes, 0x40u);
}

TEST_F(FileOpenerTest, OpensForWritingWithBothAccessesAndNothingElseChanged)
{
    EXPECT_EQ(OpenDevice(ScriptedDevice::kName, true, file_), KK_STATUS_SUCCESS);

    EXPECT_EQ(OpenCall().access, 0x12019Fu);
    EXPECT_EQ(OpenCall().share, 3u);
    EXPECT_EQ(OpenCall().disposition, 1u);
    EXPECT_EQ(OpenCall().options, 0x860u);
    EXPECT_EQ(OpenCall().fileAttributes, 0x80u);
    EXPECT_EQ(OpenCall().objectAttributes, 0x40u);
}

TEST_F(FileOpenerTest, OpensByTheNativeNameOfThePath)
{
    machine.AddDisk(1 * kMiB);

    EXPECT_EQ(OpenDevice(u"\\\\.\\PhysicalDrive0", false, file_), KK_STATUS_SUCCESS);
    EXPECT_EQ(OpenCall().object, "\\??\\PhysicalDrive0");
}

TEST_F(FileOpenerTest, IgnoresTheCaseOfNames)
{
    EXPECT_EQ(OpenDevice(u"\\DEVICE\\scripted", false, file_), KK_STATUS_SUCCESS);
}

/// What one open passed to the system beyond what the machine records.
struct OpenArguments {
    uint32_t nameBytes;
    uint32_t nameRoomBytes;
    std::u16string name;
    ObjectAttributes attributes;
    const int64_t* allocationSize;
    void* extendedAttributes;
    uint32_t extendedLength;
    uint64_t informationBefore;
};

OpenArguments ArgumentsOfOpen(const char16_t* path)
{
    std::optional<OpenArguments> seen;
    const Hook<&NtCreateFile> hook([&](NtHandle*, uint32_t, const ObjectAttributes* attributes, IoStatusBlock* ioStatus,
                                       const int64_t* allocationSize, uint32_t, uint32_t, uint32_t, uint32_t,
                                       void* extendedAttributes, uint32_t extendedLength) {
        const UnicodeString& name = *attributes->objectName;
        seen = {name.length,    name.maximumLength, name.buffer,    *attributes,
                allocationSize, extendedAttributes, extendedLength, ioStatus->information};
        return machine::kAccessDenied;
    });
    DevicePtr file;
    EXPECT_EQ(OpenDevice(path, false, file), Status(0xC0000022));
    return seen.value();
}

TEST_F(FileOpenerTest, CountsTheNameInBytesWithRoomForTheTerminator)
{
    const OpenArguments open = ArgumentsOfOpen(u"C:\\x");

    EXPECT_EQ(open.name, u"\\??\\C:\\x");
    EXPECT_EQ(open.nameBytes, 16u);
    EXPECT_EQ(open.nameRoomBytes, 18u);
}

TEST_F(FileOpenerTest, CutsALongNameToItsBuffer)
{
    const OpenArguments open = ArgumentsOfOpen(std::u16string(2000, u'x').c_str());

    EXPECT_EQ(open.name, u"\\??\\" + std::u16string(1019, u'x'));
    EXPECT_EQ(open.nameBytes, 2046u);
    EXPECT_EQ(open.nameRoomBytes, 2048u);
}

TEST_F(FileOpenerTest, PassesNoRootNoSecurityAndNoExtendedAttributes)
{
    const OpenArguments open = ArgumentsOfOpen(u"C:\\x");

    EXPECT_EQ(open.attributes.length, 48u);
    EXPECT_EQ(open.attributes.rootDirectory, nullptr);
    EXPECT_EQ(open.attributes.attributes, 0x40u);
    EXPECT_EQ(open.attributes.securityDescriptor, nullptr);
    EXPECT_EQ(open.attributes.securityQualityOfService, nullptr);
    EXPECT_EQ(open.allocationSize, nullptr);
    EXPECT_EQ(open.extendedAttributes, nullptr);
    EXPECT_EQ(open.extendedLength, 0u);
    EXPECT_EQ(open.informationBefore, 0u);
}

TEST_F(FileOpenerTest, ReportsTheSystemsStatusAndLeavesNull)
{
    auto* file = reinterpret_cast<DeviceFile*>(uintptr_t{0x10});

    EXPECT_EQ(GetFileOpener()->Open(u"\\Device\\Missing", false, &file), Status(0xC0000034));
    EXPECT_EQ(file, nullptr);
    EXPECT_EQ(CloseCount(), 0u);
    EXPECT_EQ(machine.heap.TotalAllocations(), 0u);
}

TEST_F(FileOpenerTest, PassesOnWhateverStatusTheSystemGives)
{
    machine.faults.Fail({.kind = machine::CallKind::CreateFile}, 1, 0xC0000043);
    machine.faults.Fail({.kind = machine::CallKind::CreateFile}, 2, 0x80000005);

    EXPECT_EQ(OpenDevice(ScriptedDevice::kName, false, file_), Status(0xC0000043));
    EXPECT_EQ(OpenDevice(ScriptedDevice::kName, false, file_), Status(0x80000005));
    EXPECT_FALSE(file_);
}

TEST_F(FileOpenerTest, AnInformationalStatusIsASuccess)
{
    const Hook<&NtCreateFile> hook([](auto... arguments) {
        EXPECT_EQ(Hook<&NtCreateFile>::Original(arguments...), KK_STATUS_SUCCESS);
        return Status(0x40000000);
    });

    EXPECT_EQ(OpenDevice(ScriptedDevice::kName, false, file_), KK_STATUS_SUCCESS);
    EXPECT_TRUE(file_);
}

TEST_F(FileOpenerTest, ClosesTheHandleWhenThereIsNoMemoryForTheObject)
{
    machine.faults.Fail({.kind = machine::CallKind::Allocate}, 1, 0);
    auto* file = reinterpret_cast<DeviceFile*>(uintptr_t{0x10});

    EXPECT_EQ(GetFileOpener()->Open(ScriptedDevice::kName, false, &file), Status(0xC0000017));
    EXPECT_EQ(file, nullptr);
    EXPECT_EQ(CloseCount(), 1u);
    EXPECT_EQ(machine.handles.OpenCount(), 0u);
}

TEST_F(FileOpenerTest, TheObjectLivesOnTheProcessHeapAndHoldsTheHandleAlone)
{
    ASSERT_EQ(OpenDevice(ScriptedDevice::kName, false, file_), KK_STATUS_SUCCESS);

    EXPECT_EQ(machine.heap.Sizes(), (std::vector<uint64_t>{2 * sizeof(void*)}));
    EXPECT_EQ(machine.handles.OpenCount(), 1u);
}

TEST_F(FileOpenerTest, ThereIsOneOpener)
{
    FileOpener* const opener = GetFileOpener();

    EXPECT_NE(opener, nullptr);
    EXPECT_EQ(GetFileOpener(), opener);
    EXPECT_EQ(sizeof(NtFileOpener), sizeof(void*));
    EXPECT_EQ(machine.journal.Records().size(), 0u);
}

TEST_F(FileOpenerTest, AnOpenerOnTheHeapIsFreedOnDemand)
{
    auto* const opener = new (MemAlloc(sizeof(NtFileOpener))) NtFileOpener;

    opener->Destroy(false);
    EXPECT_EQ(machine.heap.LiveBlocks(), 1u);
    opener->Destroy(true);
    EXPECT_EQ(machine.heap.LiveBlocks(), 0u);
}

TEST_F(FileOpenerTest, DestroyingAnObjectClosesAndFrees)
{
    DeviceFile* file = nullptr;
    ASSERT_EQ(GetFileOpener()->Open(ScriptedDevice::kName, false, &file), KK_STATUS_SUCCESS);

    file->Destroy(true);
    EXPECT_EQ(machine.handles.OpenCount(), 0u);
    EXPECT_EQ(machine.heap.LiveBlocks(), 0u);
    EXPECT_EQ(CloseCount(), 1u);
}

TEST_F(FileOpenerTest, DestroyingWithoutFreeingLeavesTheMemoryAndClosesOnce)
{
    DeviceFile* file = nullptr;
    ASSERT_EQ(GetFileOpener()->Open(ScriptedDevice::kName, false, &file), KK_STATUS_SUCCESS);

    file->Destroy(false);
    EXPECT_EQ(machine.handles.OpenCount(), 0u);
    EXPECT_EQ(machine.heap.LiveBlocks(), 1u);
    file->Destroy(true);
    EXPECT_EQ(CloseCount(), 1u);
}

TEST_F(FileOpenerTest, AnObjectWithoutAHandleClosesNothing)
{
    NtDeviceFile file(nullptr);

    file.Destroy(false);
    EXPECT_EQ(CloseCount(), 0u);
}

TEST_F(FileOpenerTest, APointerEndsWhatItHeldBeforeItReceivesAnother)
{
    ASSERT_EQ(OpenDevice(ScriptedDevice::kName, false, file_), KK_STATUS_SUCCESS);

    ASSERT_EQ(OpenDevice(ScriptedDevice::kName, false, file_), KK_STATUS_SUCCESS);
    EXPECT_EQ(machine.handles.OpenCount(), 1u);
    file_.Reset();
    file_.Reset();
    EXPECT_EQ(machine.handles.OpenCount(), 0u);
    EXPECT_FALSE(file_);
}

}  // namespace
}  // namespace kk
