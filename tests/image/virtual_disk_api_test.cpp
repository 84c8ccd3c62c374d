#include "image/virtual_disk_api.h"

#include <optional>
#include <thread>
#include <vector>

#include "core/nt.h"
#include "image/virtual_disk_file.h"
#include "support/forked_run.h"
#include "support/hook.h"
#include "support/machine_test.h"
#include "support/scripted_virtdisk.h"

// The entry points are bound once in a process, so every case has a process of its own.

namespace {

constexpr const char* kEntries[] = {"CreateVirtualDisk", "AttachVirtualDisk", "DetachVirtualDisk",
                                    "GetVirtualDiskPhysicalPath"};

class VirtualDiskApiTest : public MachineTest {
protected:
    KK_STATUS Create() { return file->Create(u"image", 64 * kMiB, 512, 0x200000); }

    /// Runs `body` where the library finds all entry points but one.
    template <typename Body>
    void Without(const char* entry, Body body)
    {
        EXPECT_EQ(RunForked([&] {
                      machine.modules.RemoveEntry(u"virtdisk.dll", entry);
                      body();
                      file.reset();
                      EXPECT_TRUE(machine.Imbalances().empty());
                      return 0;
                  }),
                  0)
            << entry;
    }

    ScriptedVirtdisk service{machine};
    std::optional<kk::VirtualDiskFile> file{std::in_place};
};

TEST_F(VirtualDiskApiTest, TheEntryPointsAreBoundInTheirOrderAndOnce)
{
    EXPECT_TRUE(kk::BindVirtdiskCreate());
    std::vector<std::string> expected = {"virtdisk.dll"};
    for (const char* const entry : kEntries) {
        expected.push_back(std::string("virtdisk.dll!") + entry);
    }
    std::vector<std::string> calls;
    for (const machine::CallRecord& record : machine.journal.Records()) {
        calls.push_back(record.object);
    }
    EXPECT_EQ(calls, expected);

    machine.journal.Clear();
    EXPECT_TRUE(kk::BindVirtdiskCreate());
    EXPECT_TRUE(machine.journal.Records().empty());
}

TEST_F(VirtualDiskApiTest, ALibraryThatDidNotLoadIsNotLookedForAgain)
{
    machine.faults.Fail({.kind = machine::CallKind::LoadLibrary}, 1, 0xC0000135);

    EXPECT_EQ(Create(), Status(0xC0000225));
    machine.journal.Clear();
    EXPECT_FALSE(kk::BindVirtdiskCreate());
    EXPECT_EQ(Create(), Status(0xC0000225));
    EXPECT_TRUE(machine.journal.Records().empty());
    EXPECT_TRUE(service.log.empty());
}

TEST_F(VirtualDiskApiTest, TheFirstCallNeedsEveryEntryPoint)
{
    for (const char* const entry : kEntries) {
        Without(entry, [&] {
            EXPECT_FALSE(kk::BindVirtdiskCreate());
            EXPECT_TRUE(service.log.empty());
        });
        Without(entry, [&] {
            EXPECT_EQ(Create(), Status(0xC0000225));
            EXPECT_TRUE(service.log.empty());
        });
    }
}

TEST_F(VirtualDiskApiTest, LaterCallsNeedCreationAlone)
{
    for (const char* const entry : kEntries) {
        Without(entry, [&] {
            (void)kk::BindVirtdiskCreate();
            const bool expected = std::string(entry) != "CreateVirtualDisk";
            EXPECT_EQ(kk::BindVirtdiskCreate(), expected);
            EXPECT_EQ(Create(), expected ? 0 : Status(0xC0000225));
        });
    }
}

TEST_F(VirtualDiskApiTest, AThreadThatComesWhileAnotherBindsGetsNoHalfOfTheTable)
{
    std::vector<bool> answers;
    const Hook<&LdrGetProcedureAddress> lookUp([&](void* module, const kk::AnsiString* name, uint32_t, void** address) {
        std::thread([&] { answers.push_back(kk::BindVirtdiskCreate()); }).join();
        *address = machine.modules.FindEntry(module, name->buffer);
        return Status(0);
    });

    EXPECT_TRUE(kk::BindVirtdiskCreate());

    EXPECT_EQ(answers, std::vector<bool>(std::size(kEntries), false));
    EXPECT_TRUE(kk::BindVirtdiskCreate());
}

TEST_F(VirtualDiskApiTest, EntryPointsThatAreMissingAfterAllAreNotCalled)
{
    for (const char* const entry : {"AttachVirtualDisk", "DetachVirtualDisk", "GetVirtualDiskPhysicalPath"}) {
        Without(entry, [&] {
            (void)kk::BindVirtdiskCreate();
            ASSERT_EQ(Create(), 0);

            EXPECT_EQ(file->Attach(), Status(0xC0000225));
            EXPECT_EQ(file->Detach(), 0);
            EXPECT_EQ(service.log, std::vector<std::string>{"Create 0 null 0 0 null"});
        });
    }
}

}  // namespace
