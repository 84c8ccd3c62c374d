#include "backup/snapshot_set.h"

#include "backup/snapshot_api.h"
#include "core/memory.h"
#include "scripted_snapshots.h"
#include "support/machine_test.h"

namespace {

class SnapshotSetTest : public MachineTest {
protected:
    KK_STATUS Create(const std::vector<std::u16string>& names)
    {
        std::vector<const char16_t*> pointers;
        for (const std::u16string& name : names) {
            pointers.push_back(name.c_str());
        }
        return kk::CreateSnapshots(set, pointers.data(), static_cast<uint32_t>(pointers.size()));
    }

    std::u16string Find(const std::u16string& name) const
    {
        const char16_t* const device = kk::FindSnapshotDevice(set, name.c_str());
        return device == nullptr ? u"(none)" : device;
    }

    static std::vector<std::u16string> Names(int count)
    {
        std::vector<std::u16string> names;
        for (int i = 0; i < count; ++i) {
            names.push_back(u"volume" + std::u16string(1, static_cast<char16_t>(u'a' + i)));
        }
        return names;
    }

    ScriptedSnapshots service{machine};
    kk::SnapshotSet set;
};

using Log = std::vector<std::string>;

TEST_F(SnapshotSetTest, TheCallsAndTheirArgumentsAreInOrder)
{
    EXPECT_EQ(Create({u"C-volume", u"D-volume"}), 0);
    const Log expected = {"CoInitializeEx 0",
                          "CoInitializeSecurity -1 6 2 0",
                          "CreateVssBackupComponentsInternal",
                          "InitializeForBackup",
                          "SetBackupState 1110",
                          "SetContext 0",
                          "GatherWriterMetadata",
                          "Wait 0xFFFFFFFF",
                          "QueryStatus",
                          "Async Release",
                          "StartSnapshotSet",
                          "AddToSnapshotSet C-volume",
                          "AddToSnapshotSet D-volume",
                          "PrepareForBackup",
                          "Wait 0xFFFFFFFF",
                          "QueryStatus",
                          "Async Release",
                          "DoSnapshotSet",
                          "Wait 0xFFFFFFFF",
                          "QueryStatus",
                          "Async Release",
                          "GetSnapshotProperties 1",
                          "VssFreeSnapshotProperties",
                          "GetSnapshotProperties 2",
                          "VssFreeSnapshotProperties"};
    EXPECT_EQ(service.log, expected);
    EXPECT_NE(set.components, nullptr);
    EXPECT_TRUE(set.comInitialized);
    EXPECT_EQ(set.count, 2u);

    service.log.clear();
    kk::ReleaseSnapshots(set);
    EXPECT_EQ(service.log, (Log{"components Release", "CoUninitialize"}));
}

TEST_F(SnapshotSetTest, EachVolumeFindsItsDevice)
{
    ASSERT_EQ(Create(Names(3)), 0);

    EXPECT_EQ(Find(u"volumea"), u"device1");
    EXPECT_EQ(Find(u"volumeb"), u"device2");
    EXPECT_EQ(Find(u"volumec"), u"device3");
    EXPECT_EQ(Find(u"volumed"), u"(none)");
    EXPECT_EQ(Find(u""), u"(none)");
}

TEST_F(SnapshotSetTest, NamesMustBeTheSameToTheLastUnit)
{
    ASSERT_EQ(Create({u"\\\\?\\Volume{abc}\\", u"Ä"}), 0);

    EXPECT_EQ(Find(u"\\\\?\\Volume{abc}\\"), u"device1");
    EXPECT_EQ(Find(u"\\\\?\\Volume{ABC}\\"), u"(none)");
    EXPECT_EQ(Find(u"\\\\?\\volume{abc}\\"), u"(none)");
    EXPECT_EQ(Find(u"\\\\?\\Volume{abc}"), u"(none)");
    EXPECT_EQ(Find(u"\\\\?\\Volume{abc}\\\\"), u"(none)");
    EXPECT_EQ(Find(u"ä"), u"(none)");
}

TEST_F(SnapshotSetTest, OnlySixteenVolumesAreTaken)
{
    ASSERT_EQ(Create(Names(17)), 0);

    EXPECT_EQ(service.names.size(), 16u);
    EXPECT_EQ(set.count, 16u);
    EXPECT_EQ(Find(u"volumep"), u"device6");
    EXPECT_EQ(Find(u"volumeq"), u"(none)");
}

TEST_F(SnapshotSetTest, ALongNameIsCutInTheRequestAndInTheTable)
{
    const std::u16string longest(127, u'v');
    ASSERT_EQ(Create({longest + u"x", std::u16string(126, u'w')}), 0);

    EXPECT_EQ(service.names[0], longest);
    EXPECT_EQ(service.names[1], std::u16string(126, u'w'));
    EXPECT_EQ(Find(longest), u"device1");
    EXPECT_EQ(Find(longest + u"x"), u"(none)");
    EXPECT_EQ(Find(std::u16string(126, u'w')), u"device2");
}

TEST_F(SnapshotSetTest, ALongDeviceNameIsCut)
{
    service.devices[1] = std::u16string(299, u'd');
    service.devices[2] = std::u16string(300, u'e');
    ASSERT_EQ(Create(Names(2)), 0);

    EXPECT_EQ(Find(u"volumea"), std::u16string(299, u'd'));
    EXPECT_EQ(Find(u"volumeb"), std::u16string(299, u'e'));
}

TEST_F(SnapshotSetTest, AVolumeWithoutADeviceIsNotFound)
{
    service.devices[1] = std::nullopt;
    service.devices[2] = u"";
    ASSERT_EQ(Create(Names(3)), 0);

    EXPECT_EQ(Find(u"volumea"), u"(none)");
    EXPECT_EQ(Find(u"volumeb"), u"(none)");
    EXPECT_EQ(Find(u"volumec"), u"device3");
    EXPECT_EQ(std::count(service.log.begin(), service.log.end(), "VssFreeSnapshotProperties"), 3);
}

TEST_F(SnapshotSetTest, OfEqualNamesTheFirstWithADeviceIsFound)
{
    service.devices[1] = std::nullopt;
    ASSERT_EQ(Create({u"same", u"same", u"same"}), 0);

    EXPECT_EQ(service.names.size(), 3u);
    EXPECT_EQ(Find(u"same"), u"device2");
}

TEST_F(SnapshotSetTest, PropertiesThatCannotBeLearntAreNoFailure)
{
    service.results["GetSnapshotProperties"] = Status(0x80042308);

    EXPECT_EQ(Create(Names(2)), 0);
    EXPECT_EQ(std::count(service.log.begin(), service.log.end(), "VssFreeSnapshotProperties"), 0);
    EXPECT_EQ(std::count(service.log.begin(), service.log.end(), "GetSnapshotProperties 2"), 1);
    EXPECT_EQ(Find(u"volumea"), u"(none)");
    EXPECT_EQ(set.count, 2u);
}

TEST_F(SnapshotSetTest, PositiveResultsAreSuccesses)
{
    for (const char* const call :
         {"CoInitializeEx", "CoInitializeSecurity", "CreateVssBackupComponentsInternal", "InitializeForBackup",
          "SetBackupState", "SetContext", "GatherWriterMetadata", "Wait", "QueryStatus", "StartSnapshotSet",
          "AddToSnapshotSet", "PrepareForBackup", "DoSnapshotSet", "GetSnapshotProperties"}) {
        service.results[call] = 1;
    }

    EXPECT_EQ(Create(Names(2)), 0);
    EXPECT_TRUE(set.comInitialized);
    EXPECT_EQ(Find(u"volumeb"), u"device2");
}

TEST_F(SnapshotSetTest, TheTableHasRoomForSixteenVolumes)
{
    ASSERT_EQ(Create(Names(1)), 0);

    const std::vector<uint64_t>& sizes = machine.heap.Sizes();
    EXPECT_EQ(sizes, std::vector<uint64_t>{16 * 856});
    const auto* const bytes = reinterpret_cast<const uint8_t*>(set.table + 1);
    EXPECT_TRUE(std::all_of(bytes, bytes + 15 * 856, [](uint8_t byte) { return byte == 0; }));
}

TEST_F(SnapshotSetTest, ATableThatIsThereIsUsedAgain)
{
    service.results["CoInitializeEx"] = Status(0x80004005);
    EXPECT_EQ(Create(Names(1)), Status(0x80004005));
    const kk::SnapshotTableEntry* const table = set.table;
    ASSERT_NE(table, nullptr);
    service.results.clear();

    EXPECT_EQ(Create(Names(1)), 0);
    EXPECT_EQ(set.table, table);
    EXPECT_EQ(machine.heap.TotalAllocations(), 1u);
}

TEST_F(SnapshotSetTest, OldDevicesOfAUsedTableAreForgotten)
{
    ASSERT_EQ(Create(Names(1)), 0);
    set.components->methods->release(set.components);
    set.components = nullptr;
    service.comEntries = 0;
    service.devices[2] = std::nullopt;

    ASSERT_EQ(Create({u"other"}), 0);
    EXPECT_EQ(Find(u"volumea"), u"(none)");
    EXPECT_EQ(Find(u"other"), u"(none)");
}

TEST_F(SnapshotSetTest, ReleasingAnUnusedSetDoesNothing)
{
    kk::ReleaseSnapshots(set);
    kk::ReleaseSnapshots(set);

    EXPECT_TRUE(service.log.empty());
    EXPECT_EQ(Find(u"volumea"), u"(none)");
}

TEST_F(SnapshotSetTest, WhereComIsNotBoundTheReleaseOnlyGivesTheTableBack)
{
    ASSERT_EQ(kk::GetSnapshotApi().coUninitialize, nullptr);
    set.comInitialized = true;
    set.table = static_cast<kk::SnapshotTableEntry*>(kk::MemAlloc(sizeof(kk::SnapshotTableEntry)));
    set.count = 1;

    kk::ReleaseSnapshots(set);

    EXPECT_TRUE(set.comInitialized) << "COM is still to be left";
    EXPECT_EQ(set.table, nullptr);
    EXPECT_EQ(set.count, 0u);
    EXPECT_EQ(machine.heap.LiveBlocks(), 0u);
}

TEST_F(SnapshotSetTest, ASecondReleaseDoesNothing)
{
    ASSERT_EQ(Create(Names(1)), 0);
    kk::ReleaseSnapshots(set);
    service.log.clear();

    kk::ReleaseSnapshots(set);

    EXPECT_TRUE(service.log.empty());
    EXPECT_EQ(set.components, nullptr);
    EXPECT_FALSE(set.comInitialized);
    EXPECT_EQ(set.table, nullptr);
    EXPECT_EQ(set.count, 0u);
    EXPECT_EQ(Find(u"volumea"), u"(none)");
    EXPECT_EQ(machine.heap.LiveBlocks(), 0u);
}

TEST_F(SnapshotSetTest, AReleasedSetMayBeUsedAgain)
{
    ASSERT_EQ(Create(Names(1)), 0);
    kk::ReleaseSnapshots(set);

    EXPECT_EQ(Create({u"next"}), 0);
    EXPECT_EQ(Find(u"next"), u"device2");
    EXPECT_EQ(Find(u"volumea"), u"(none)");
}

TEST_F(SnapshotSetTest, TheEndOfTheObjectReleasesAll)
{
    {
        kk::SnapshotSet ending;
        const char16_t* const name = u"volume";
        ASSERT_EQ(kk::CreateSnapshots(ending, &name, 1), 0);
        service.log.clear();
    }

    EXPECT_EQ(service.log, (Log{"components Release", "CoUninitialize"}));
    EXPECT_EQ(machine.heap.LiveBlocks(), 0u);
}

TEST_F(SnapshotSetTest, WithoutVolumesNothingHappens)
{
    EXPECT_EQ(kk::CreateSnapshots(set, nullptr, 0), 0);
    EXPECT_TRUE(service.log.empty());
    EXPECT_TRUE(machine.journal.Records().empty());
    EXPECT_EQ(set.table, nullptr);
}

}  // namespace
