#include "core/kernel32_api.h"

#include <functional>
#include <string>

#include "core/nt.h"
#include "support/forked_run.h"
#include "support/hook.h"
#include "support/machine_test.h"

namespace kk {
namespace {

constexpr const char* kNames[] = {"SetVolumeMountPointW", "DeleteVolumeMountPointW", "CreateProcessW",
                                  "WaitForSingleObject",  "GetExitCodeProcess",      "CloseHandle",
                                  "GetLogicalDrives",     "GetSystemDirectoryW"};
constexpr size_t kRequiredNames = 2;

/// Entry points told apart by their addresses; none is called.
char gEntries[std::size(kNames)];

/// Binding happens once in a process, so each test's body runs in a process of its own.
class Kernel32ApiTest : public MachineTest {
protected:
    Kernel32ApiTest()
    {
        machine.modules.Remove(u"kernel32.dll");
        AddLibrary();
    }

    void AddLibrary()
    {
        for (size_t i = 0; i < std::size(kNames); ++i) {
            machine.modules.Add(u"kernel32.dll", {{kNames[i], &gEntries[i]}});
        }
    }

    /// Runs `body` where nothing is bound yet.
    static void Fresh(const std::function<void()>& body)
    {
        EXPECT_EQ(RunForked([&] {
                      body();
                      return 0;
                  }),
                  0);
    }

    /// The table's pointers in their order.
    static std::vector<const void*> Slots()
    {
        const Kernel32Api& api = GetKernel32Api();
        return {reinterpret_cast<const void*>(api.setVolumeMountPointW),
                reinterpret_cast<const void*>(api.deleteVolumeMountPointW),
                reinterpret_cast<const void*>(api.createProcessW),
                reinterpret_cast<const void*>(api.waitForSingleObject),
                reinterpret_cast<const void*>(api.getExitCodeProcess),
                reinterpret_cast<const void*>(api.closeHandle),
                reinterpret_cast<const void*>(api.getLogicalDrives),
                reinterpret_cast<const void*>(api.getSystemDirectoryW)};
    }

    size_t LoadCount() const { return machine.journal.Count({.kind = machine::CallKind::LoadLibrary}); }
    size_t LookUpCount() const { return machine.journal.Count({.kind = machine::CallKind::GetProcedure}); }
};

TEST_F(Kernel32ApiTest, IsEmptyUntilItIsBound)
{
    Fresh([] {
        EXPECT_EQ(Slots(), std::vector<const void*>(std::size(kNames)));
        EXPECT_FALSE(GetKernel32Api().tried.IsSet());
        EXPECT_FALSE(GetKernel32Api().ok.IsSet());
    });
}

TEST_F(Kernel32ApiTest, HoldsEveryEntryPointOnceItIsBound)
{
    Fresh([] {
        EXPECT_TRUE(BindKernel32());
        for (size_t i = 0; i < std::size(kNames); ++i) {
            EXPECT_EQ(Slots()[i], &gEntries[i]) << kNames[i];
        }
        EXPECT_TRUE(GetKernel32Api().tried.IsSet());
        EXPECT_TRUE(GetKernel32Api().ok.IsSet());
    });
}

TEST_F(Kernel32ApiTest, IsLoadedByNameAndLookedUpInOrder)
{
    Fresh([this] {
        EXPECT_TRUE(BindKernel32());
        const auto& records = machine.journal.Records();
        ASSERT_EQ(records.size(), 1 + std::size(kNames));
        EXPECT_EQ(records[0].object, "kernel32.dll");
        for (size_t i = 0; i < std::size(kNames); ++i) {
            EXPECT_EQ(records[i + 1].object, std::string("kernel32.dll!") + kNames[i]);
        }
    });
}

TEST_F(Kernel32ApiTest, LaysItsEntriesOutInOrderWithTheFlagsBehindThem)
{
    EXPECT_EQ(offsetof(Kernel32Api, setVolumeMountPointW), 0u);
    EXPECT_EQ(offsetof(Kernel32Api, getSystemDirectoryW), 56u);
    EXPECT_EQ(offsetof(Kernel32Api, tried), 64u);
    EXPECT_EQ(offsetof(Kernel32Api, ok), 65u);
}

TEST_F(Kernel32ApiTest, IsBoundOnlyOnce)
{
    Fresh([this] {
        EXPECT_TRUE(BindKernel32());
        machine.modules.Remove(u"kernel32.dll");
        EXPECT_TRUE(BindKernel32());
        EXPECT_EQ(LoadCount(), 1u);
        EXPECT_EQ(LookUpCount(), std::size(kNames));
    });
}

TEST_F(Kernel32ApiTest, IsBoundWithoutAnyOneOfTheOptionalEntries)
{
    for (size_t missing = kRequiredNames; missing < std::size(kNames); ++missing) {
        Fresh([this, missing] {
            machine.modules.RemoveEntry(u"kernel32.dll", kNames[missing]);
            EXPECT_TRUE(BindKernel32()) << kNames[missing];
            for (size_t i = 0; i < std::size(kNames); ++i) {
                EXPECT_EQ(Slots()[i], i == missing ? nullptr : &gEntries[i]) << kNames[i];
            }
        });
    }
}

TEST_F(Kernel32ApiTest, IsBoundWithTheRequiredEntriesAlone)
{
    Fresh([this] {
        for (size_t i = kRequiredNames; i < std::size(kNames); ++i) {
            machine.modules.RemoveEntry(u"kernel32.dll", kNames[i]);
        }
        EXPECT_TRUE(BindKernel32());
    });
}

TEST_F(Kernel32ApiTest, IsNotBoundWithoutEitherRequiredEntry)
{
    for (size_t missing = 0; missing < kRequiredNames; ++missing) {
        Fresh([this, missing] {
            machine.modules.RemoveEntry(u"kernel32.dll", kNames[missing]);
            EXPECT_FALSE(BindKernel32());
            EXPECT_EQ(LookUpCount(), std::size(kNames));
            EXPECT_EQ(Slots()[1 - missing], &gEntries[1 - missing]);
            EXPECT_EQ(Slots().back(), &gEntries[std::size(kNames) - 1]);
            EXPECT_FALSE(BindKernel32());
            EXPECT_EQ(LoadCount(), 1u);
        });
    }
}

TEST_F(Kernel32ApiTest, ALoadThatFailedIsNeverTriedAgain)
{
    Fresh([this] {
        machine.modules.Remove(u"kernel32.dll");
        EXPECT_FALSE(BindKernel32());
        AddLibrary();
        EXPECT_FALSE(BindKernel32());
        EXPECT_FALSE(BindKernel32());
        EXPECT_EQ(LoadCount(), 1u);
        EXPECT_EQ(LookUpCount(), 0u);
        EXPECT_TRUE(GetKernel32Api().tried.IsSet());
        EXPECT_FALSE(GetKernel32Api().ok.IsSet());
        EXPECT_EQ(Slots(), std::vector<const void*>(std::size(kNames)));
    });
}

TEST_F(Kernel32ApiTest, IsTriedBeforeTheLibraryIsLoaded)
{
    Fresh([] {
        int loads = 0;
        const Hook<&LdrLoadDll> hook([&](const char16_t*, const uint32_t*, const UnicodeString*, void**) {
            ++loads;
            EXPECT_TRUE(GetKernel32Api().tried.IsSet());
            EXPECT_FALSE(BindKernel32());
            return Status(0xC0000135);
        });
        EXPECT_FALSE(BindKernel32());
        EXPECT_EQ(loads, 1);
    });
}

}  // namespace
}  // namespace kk
