#include "core/library_binding.h"

#include <optional>
#include <string>

#include "core/nt.h"
#include "support/hook.h"
#include "support/machine_test.h"

namespace kk {
namespace {

int gFirst, gSecond, gThird;

class LibraryBindingTest : public MachineTest {
protected:
    LibraryBindingTest()
    {
        machine.modules.Add(u"sample.dll", {{"First", &gFirst}, {"Second", &gSecond}, {"Third", &gThird}});
    }

    std::vector<std::string> LookedUp() const
    {
        std::vector<std::string> names;
        for (const auto& record : machine.journal.FindAll({.kind = machine::CallKind::GetProcedure})) {
            names.push_back(record.object);
        }
        return names;
    }
};

using LoadSystemLibraryTest = LibraryBindingTest;

TEST_F(LoadSystemLibraryTest, GivesTheModule)
{
    EXPECT_EQ(LoadSystemLibrary(u"sample.dll"), machine.modules.Load(u"sample.dll"));
    EXPECT_EQ(machine.journal.Count({.kind = machine::CallKind::LoadLibrary, .object = "sample.dll"}), 1u);
}

TEST_F(LoadSystemLibraryTest, GivesNullForAMissingLibrary)
{
    EXPECT_EQ(LoadSystemLibrary(u"missing.dll"), nullptr);
}

TEST_F(LoadSystemLibraryTest, PassesACountedNameAndNeitherPathNorFlags)
{
    const Hook<&LdrLoadDll> hook(
        [](const char16_t* searchPath, const uint32_t* flags, const UnicodeString* name, void** module) {
            EXPECT_EQ(searchPath, nullptr);
            EXPECT_EQ(flags, nullptr);
            EXPECT_EQ(name->length, 20u);
            EXPECT_EQ(name->maximumLength, 22u);
            EXPECT_EQ(std::u16string(name->buffer), u"sample.dll");
            *module = &gFirst;
            return KK_STATUS_SUCCESS;
        });

    EXPECT_EQ(LoadSystemLibrary(u"sample.dll"), &gFirst);
}

TEST_F(LoadSystemLibraryTest, IgnoresWhatAFailedLoadLeavesBehind)
{
    const Hook<&LdrLoadDll> hook([](const char16_t*, const uint32_t*, const UnicodeString*, void** module) {
        *module = &gFirst;
        return Status(0xC0000135);
    });

    EXPECT_EQ(LoadSystemLibrary(u"sample.dll"), nullptr);
}

TEST_F(LoadSystemLibraryTest, StartsFromNull)
{
    const Hook<&LdrLoadDll> hook([](const char16_t*, const uint32_t*, const UnicodeString*, void** module) {
        EXPECT_EQ(*module, nullptr);
        return Status(0x40000000);
    });

    EXPECT_EQ(LoadSystemLibrary(u"sample.dll"), nullptr);
}

TEST_F(LoadSystemLibraryTest, AnInformationalStatusIsASuccess)
{
    const Hook<&LdrLoadDll> hook([](const char16_t*, const uint32_t*, const UnicodeString*, void** module) {
        *module = &gFirst;
        return Status(0x40000003);
    });

    EXPECT_EQ(LoadSystemLibrary(u"sample.dll"), &gFirst);
}

using SystemProcAddressTest = LibraryBindingTest;

TEST_F(SystemProcAddressTest, GivesTheEntryPoint)
{
    EXPECT_EQ(SystemProcAddress(machine.modules.Load(u"sample.dll"), "Second"), &gSecond);
    EXPECT_EQ(LookedUp(), (std::vector<std::string>{"sample.dll!Second"}));
}

TEST_F(SystemProcAddressTest, GivesNullForAMissingEntryPoint)
{
    EXPECT_EQ(SystemProcAddress(machine.modules.Load(u"sample.dll"), "Fourth"), nullptr);
    EXPECT_EQ(LookedUp().size(), 1u);
}

TEST_F(SystemProcAddressTest, ANullModuleHasNoneAndMakesNoCall)
{
    EXPECT_EQ(SystemProcAddress(nullptr, "First"), nullptr);
    EXPECT_TRUE(machine.journal.Records().empty());
}

TEST_F(SystemProcAddressTest, PassesACountedNameAndNoOrdinal)
{
    const Hook<&LdrGetProcedureAddress> hook(
        [](void* module, const AnsiString* name, uint32_t ordinal, void** address) {
            EXPECT_EQ(module, &gThird);
            EXPECT_EQ(name->length, 6u);
            EXPECT_EQ(name->maximumLength, 7u);
            EXPECT_STREQ(name->buffer, "Second");
            EXPECT_EQ(ordinal, 0u);
            EXPECT_EQ(*address, nullptr);
            *address = &gSecond;
            return KK_STATUS_SUCCESS;
        });

    EXPECT_EQ(SystemProcAddress(&gThird, "Second"), &gSecond);
}

TEST_F(SystemProcAddressTest, IgnoresWhatAFailedLookUpLeavesBehind)
{
    const Hook<&LdrGetProcedureAddress> hook([](void*, const AnsiString*, uint32_t, void** address) {
        *address = &gFirst;
        return Status(0xC0000139);
    });

    EXPECT_EQ(SystemProcAddress(&gThird, "Second"), nullptr);
}

/// A table whose pointers are not in the order in which they are looked up.
struct SampleTable {
    void* third;
    void* first;
    void* second;
    uint8_t flag;
};

class BindLibraryTest : public LibraryBindingTest {
protected:
    Binding Bind() { return BindLibrary({u"sample.dll", kEntries}, &table_); }

    static constexpr EntryPoint kEntries[] = {{"First", offsetof(SampleTable, first), true},
                                              {"Second", offsetof(SampleTable, second), false},
                                              {"Third", offsetof(SampleTable, third), true}};
    SampleTable table_ = {this, this, this, 0x5A};
};

TEST_F(BindLibraryTest, FillsEverySlotInTheOrderOfTheEntries)
{
    EXPECT_EQ(Bind(), Binding::Complete);

    EXPECT_EQ(table_.first, &gFirst);
    EXPECT_EQ(table_.second, &gSecond);
    EXPECT_EQ(table_.third, &gThird);
    EXPECT_EQ(table_.flag, 0x5A);
    EXPECT_EQ(LookedUp(), (std::vector<std::string>{"sample.dll!First", "sample.dll!Second", "sample.dll!Third"}));
}

TEST_F(BindLibraryTest, AMissingOptionalEntryIsNullAndNoFailure)
{
    machine.modules.RemoveEntry(u"sample.dll", "Second");

    EXPECT_EQ(Bind(), Binding::Complete);
    EXPECT_EQ(table_.second, nullptr);
    EXPECT_EQ(table_.third, &gThird);
}

TEST_F(BindLibraryTest, AMissingRequiredEntryFailsAfterAllWereLookedUp)
{
    machine.modules.RemoveEntry(u"sample.dll", "First");

    EXPECT_EQ(Bind(), Binding::Incomplete);
    EXPECT_EQ(table_.first, nullptr);
    EXPECT_EQ(table_.second, &gSecond);
    EXPECT_EQ(table_.third, &gThird);
    EXPECT_EQ(LookedUp().size(), 3u);
}

TEST_F(BindLibraryTest, AMissingLastRequiredEntryFails)
{
    machine.modules.RemoveEntry(u"sample.dll", "Third");

    EXPECT_EQ(Bind(), Binding::Incomplete);
    EXPECT_EQ(table_.first, &gFirst);
    EXPECT_EQ(table_.third, nullptr);
}

TEST_F(BindLibraryTest, AMissingLibraryLeavesTheTableAlone)
{
    machine.modules.Remove(u"sample.dll");

    EXPECT_EQ(Bind(), Binding::NotLoaded);
    EXPECT_EQ(table_.first, this);
    EXPECT_TRUE(LookedUp().empty());
}

}  // namespace
}  // namespace kk
