#include "core/device_file.h"

#include "core/file_opener.h"
#include "core/nt_device_file.h"
#include "support/machine_test.h"
#include "support/scripted_device.h"

namespace kk {
namespace {

TEST(DeviceFileBaseTest, ItsOwnOperationsDoNothing)
{
    NtDeviceFile device(nullptr);
    uint64_t size = 5;
    uint32_t returned = 5;

    EXPECT_EQ(device.DeviceFile::ReadAt(0, nullptr, 1), KK_STATUS_SUCCESS);
    EXPECT_EQ(device.DeviceFile::WriteAt(0, nullptr, 1), KK_STATUS_SUCCESS);
    EXPECT_EQ(device.DeviceFile::Control(1, nullptr, 0, nullptr, 0, &returned), KK_STATUS_SUCCESS);
    EXPECT_EQ(device.DeviceFile::QuerySize(&size), KK_STATUS_SUCCESS);
    EXPECT_EQ(device.DeviceFile::Flush(), KK_STATUS_SUCCESS);
    device.DeviceFile::Destroy(true);
    EXPECT_EQ(size, 5u);
    EXPECT_EQ(returned, 5u);
}

TEST(FileOpenerBaseTest, ItsOwnOperationsDoNothing)
{
    NtFileOpener opener;
    auto* file = reinterpret_cast<DeviceFile*>(uintptr_t{0x10});

    EXPECT_EQ(opener.FileOpener::Open(u"x", false, &file), KK_STATUS_SUCCESS);
    EXPECT_EQ(file, reinterpret_cast<DeviceFile*>(uintptr_t{0x10}));
    opener.FileOpener::Destroy(true);
}

/// Calls operations by their place in the table, as a caller does that was built by another compiler.
class SlotOrderTest : public MachineTest {
protected:
    SlotOrderTest() : device_(ScriptedDevice::AddTo(machine))
    {
        device_->read = [](uint64_t, std::span<uint8_t> into) { return machine::IoResult{0, into.size()}; };
        device_->write = [](uint64_t, std::span<const uint8_t> from) { return machine::IoResult{0, from.size()}; };
        device_->control = [](const machine::ControlRequest&) { return machine::ControlAnswer{}; };
        device_->standardInformation = [](FileStandardInformation& information) {
            information.endOfFile = 77;
            return machine::kSuccess;
        };
    }

    template <typename Function>
    static Function* Slot(const void* object, size_t index)
    {
        return reinterpret_cast<Function*>((*static_cast<void* const* const*>(object))[index]);
    }

    std::string LastCall() const { return machine.journal.Records().back().name; }

    std::shared_ptr<ScriptedDevice> device_;
};

TEST_F(SlotOrderTest, OpenIsTheOpenersSecondSlot)
{
    using Open = KK_STATUS(FileOpener*, const char16_t*, bool, DeviceFile**);
    DeviceFile* file = nullptr;

    EXPECT_EQ(Slot<Open>(GetFileOpener(), 1)(GetFileOpener(), ScriptedDevice::kName, true, &file), KK_STATUS_SUCCESS);
    ASSERT_NE(file, nullptr);
    file->Destroy(true);
}

TEST_F(SlotOrderTest, OperationsFollowTheDestructorInTheirOrder)
{
    using Destroy = void(DeviceFile*, bool);
    using ReadAt = KK_STATUS(DeviceFile*, uint64_t, void*, uint32_t);
    using WriteAt = KK_STATUS(DeviceFile*, uint64_t, const void*, uint32_t);
    using Control = KK_STATUS(DeviceFile*, uint32_t, const void*, uint32_t, void*, uint32_t, uint32_t*);
    using QuerySize = KK_STATUS(DeviceFile*, uint64_t*);
    using Flush = KK_STATUS(DeviceFile*);
    DeviceFile* file = nullptr;
    ASSERT_EQ(GetFileOpener()->Open(ScriptedDevice::kName, true, &file), KK_STATUS_SUCCESS);
    uint8_t byte = 0;
    uint64_t size = 0;

    EXPECT_EQ(Slot<ReadAt>(file, 1)(file, 0, &byte, 1), KK_STATUS_SUCCESS);
    EXPECT_EQ(LastCall(), "NtReadFile");
    EXPECT_EQ(Slot<WriteAt>(file, 2)(file, 0, &byte, 1), KK_STATUS_SUCCESS);
    EXPECT_EQ(LastCall(), "NtWriteFile");
    EXPECT_EQ(Slot<Control>(file, 3)(file, 0x70140, nullptr, 0, nullptr, 0, nullptr), KK_STATUS_SUCCESS);
    EXPECT_EQ(LastCall(), "NtDeviceIoControlFile");
    EXPECT_EQ(Slot<QuerySize>(file, 4)(file, &size), KK_STATUS_SUCCESS);
    EXPECT_EQ(size, 77u);
    EXPECT_EQ(Slot<Flush>(file, 5)(file), KK_STATUS_SUCCESS);
    EXPECT_EQ(LastCall(), "NtFlushBuffersFile");
    Slot<Destroy>(file, 0)(file, true);
    EXPECT_EQ(machine.handles.OpenCount(), 0u);
    EXPECT_EQ(machine.heap.LiveBlocks(), 0u);
}

}  // namespace
}  // namespace kk
