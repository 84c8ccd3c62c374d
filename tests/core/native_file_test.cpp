#include "core/native_file.h"

#include <fstream>
#include <optional>
#include <string>

#include "core/nt.h"
#include "support/hook.h"
#include "support/machine_test.h"
#include "support/scripted_device.h"
#include "support/shell.h"

namespace kk {
namespace {

class WriteNewFileTest : public MachineTest {
protected:
    WriteNewFileTest() : device_(ScriptedDevice::AddTo(machine))
    {
        device_->write = [](uint64_t, std::span<const uint8_t> from) {
            return machine::IoResult{machine::kSuccess, from.size()};
        };
    }

    KK_STATUS Write(const std::string& data)
    {
        return WriteNewFile(ScriptedDevice::kName, data.data(), static_cast<uint32_t>(data.size()));
    }

    std::vector<machine::CallRecord> Calls(machine::CallKind kind) const { return machine.journal.FindAll({kind}); }

    std::shared_ptr<ScriptedDevice> device_;
    TemporaryFolder folder_;
};

TEST_F(WriteNewFileTest, CreatesTheFileWithItsContent)
{
    const std::string data = "{\r\n}\0\xFF end";

    EXPECT_EQ(WriteNewFile(WindowsPath(folder_ / "new").c_str(), data.data(), static_cast<uint32_t>(data.size())),
              KK_STATUS_SUCCESS);
    EXPECT_EQ(ReadFile(folder_ / "new"), data);
}

TEST_F(WriteNewFileTest, ReplacesALongerFile)
{
    std::ofstream(folder_ / "old") << std::string(5000, 'x');

    EXPECT_EQ(WriteNewFile(WindowsPath(folder_ / "old").c_str(), "abc", 3), KK_STATUS_SUCCESS);
    EXPECT_EQ(ReadFile(folder_ / "old"), "abc");
}

TEST_F(WriteNewFileTest, AsksForWritingSharedWithReaders)
{
    EXPECT_EQ(Write("abc"), KK_STATUS_SUCCESS);

    const auto opens = Calls(machine::CallKind::CreateFile);
    ASSERT_EQ(opens.size(), 1u);
    EXPECT_EQ(opens[0].access, 0x120116u);
    EXPECT_EQ(opens[0].share, 1u);
    EXPECT_EQ(opens[0].disposition, 5u);
    EXPECT_EQ(opens[0].options, 0x60u);
    EXPECT_EQ(opens[0].fileAttributes, 0x80u);
    EXPECT_EQ(opens[0].objectAttributes, 0x40u);
}

TEST_F(WriteNewFileTest, OpensByTheNativeNameOfThePath)
{
    EXPECT_EQ(WriteNewFile(u"\\\\.\\Q:\\nowhere", "abc", 3), Status(0xC000003A));

    EXPECT_EQ(Calls(machine::CallKind::CreateFile).at(0).object, "\\??\\Q:\\nowhere");
}

TEST_F(WriteNewFileTest, WritesOnceFromTheStartAndCloses)
{
    EXPECT_EQ(Write("abcdef"), KK_STATUS_SUCCESS);

    const auto& records = machine.journal.Records();
    ASSERT_EQ(records.size(), 3u);
    EXPECT_EQ(records[1].name, "NtWriteFile");
    EXPECT_EQ(records[1].offset, 0u);
    EXPECT_EQ(records[1].length, 6u);
    EXPECT_EQ(records[2].name, "NtClose");
}

TEST_F(WriteNewFileTest, WritesEvenWhenThereIsNothingToWrite)
{
    EXPECT_EQ(WriteNewFile(ScriptedDevice::kName, nullptr, 0), KK_STATUS_SUCCESS);

    EXPECT_EQ(Calls(machine::CallKind::WriteFile).size(), 1u);
}

TEST_F(WriteNewFileTest, AShortWriteIsASuccessWithoutARetry)
{
    machine.faults.Shorten({machine::CallKind::WriteFile}, 1, 2);

    EXPECT_EQ(Write("abcdef"), KK_STATUS_SUCCESS);
    EXPECT_EQ(Calls(machine::CallKind::WriteFile).size(), 1u);
}

TEST_F(WriteNewFileTest, AWriteOfNothingIsASuccessWithoutARetry)
{
    machine.faults.Shorten({machine::CallKind::WriteFile}, 1, 0);

    EXPECT_EQ(Write("abcdef"), KK_STATUS_SUCCESS);
    EXPECT_EQ(Calls(machine::CallKind::WriteFile).size(), 1u);
}

TEST_F(WriteNewFileTest, AFailingCreationIsTheResult)
{
    machine.faults.Fail({machine::CallKind::CreateFile}, 1, 0xC0000022);

    EXPECT_EQ(Write("abc"), Status(0xC0000022));
    EXPECT_EQ(machine.journal.Records().size(), 1u);
}

TEST_F(WriteNewFileTest, AFailingWriteIsTheResultAndTheHandleIsClosed)
{
    machine.faults.Fail({machine::CallKind::WriteFile}, 1, 0xC000007F);

    EXPECT_EQ(Write("abc"), Status(0xC000007F));
    EXPECT_EQ(Calls(machine::CallKind::Close).size(), 1u);
    EXPECT_EQ(machine.handles.OpenCount(), 0u);
}

TEST_F(WriteNewFileTest, AnInformationalStatusIsASuccess)
{
    machine.faults.Fail({machine::CallKind::WriteFile}, 1, 0x40000000);

    EXPECT_EQ(Write("abc"), KK_STATUS_SUCCESS);
}

TEST_F(WriteNewFileTest, TakesNoMemoryFromTheHeap)
{
    EXPECT_EQ(Write("abc"), KK_STATUS_SUCCESS);

    EXPECT_EQ(machine.heap.TotalAllocations(), 0u);
}

TEST_F(WriteNewFileTest, PassesACountedNameAndNeitherEventNorKey)
{
    const Hook<&NtCreateFile> create([](auto... arguments) {
        const auto* attributes = std::get<2>(std::tuple(arguments...));
        EXPECT_EQ(attributes->objectName->length, 32u);
        EXPECT_EQ(attributes->objectName->maximumLength, 34u);
        EXPECT_EQ(attributes->rootDirectory, nullptr);
        return Hook<&NtCreateFile>::Original(arguments...);
    });
    const Hook<&NtWriteFile> write([](NtHandle handle, NtHandle event, void* apc, void* apcContext,
                                      IoStatusBlock* ioStatus, const void* data, uint32_t length, const int64_t* offset,
                                      const uint32_t* key) {
        EXPECT_TRUE(event == nullptr && apc == nullptr && apcContext == nullptr && key == nullptr);
        EXPECT_NE(offset, nullptr);
        return Hook<&NtWriteFile>::Original(handle, event, apc, apcContext, ioStatus, data, length, offset, key);
    });

    EXPECT_EQ(Write("abc"), KK_STATUS_SUCCESS);
}

class HandleOwnerTest : public MachineTest {
protected:
    /// A handle whose closing is counted.
    NtHandle AddHandle()
    {
        return machine.handles.AddServiceHandle("counted", [this] { ++closed_; });
    }

    int closed_ = 0;
};

TEST_F(HandleOwnerTest, ClosesItsHandleOnce)
{
    {
        HandleOwner owner(AddHandle());
        const HandleOwner next(std::move(owner));
        EXPECT_NE(next.Get(), nullptr);
        EXPECT_EQ(closed_, 0);
    }

    EXPECT_EQ(closed_, 1);
}

TEST_F(HandleOwnerTest, LetsGoOfAHandleThatIsReleased)
{
    NtHandle handle = nullptr;
    {
        HandleOwner owner(AddHandle());
        handle = owner.Release();
        EXPECT_EQ(owner.Get(), nullptr);
    }

    EXPECT_EQ(closed_, 0);
    EXPECT_EQ(NtClose(handle), KK_STATUS_SUCCESS);
}

TEST_F(HandleOwnerTest, WithoutAHandleClosesNothing)
{
    {
        const HandleOwner owner;
    }

    EXPECT_TRUE(machine.journal.Records().empty());
}

}  // namespace
}  // namespace kk
