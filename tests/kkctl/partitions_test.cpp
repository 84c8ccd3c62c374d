#include <cstring>

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include "fake_kit.h"

using testing::HasSubstr;

class PartitionsTest : public CommandLineTest {
protected:
    PartitionsTest()
    {
        constexpr uint8_t kBasicData[16] = {0xA2, 0xA0, 0xD0, 0xEB, 0xE5, 0xB9, 0x33, 0x44,
                                            0x87, 0xC0, 0x68, 0xB6, 0xB7, 0x26, 0x99, 0xC7};
        KkPartitionInfo gpt = {};
        gpt.number = 3;
        gpt.startOffset = 1 << 20;
        gpt.length = 40 << 20;
        std::memcpy(gpt.typeGuid, kBasicData, sizeof(kBasicData));
        SetText(gpt.name, u"Daten \u00FC\xD800");
        SetText(gpt.driveLetter, u"C:");
        gpt.fileSystemSize = (40 << 20) - 512;
        SetText(gpt.fileSystemName, u"NTFS");
        SetText(gpt.deviceName, u"\\Device\\HarddiskVolume1");
        SetText(gpt.volumePath, u"\\\\?\\Volume{1}\\");
        KkPartitionInfo mbr = {};
        mbr.number = 4;
        mbr.startOffset = 41 << 20;
        mbr.length = 1 << 20;
        mbr.mbrType = 0x77;
        library.partitions = {gpt, mbr};
    }
};

TEST_F(PartitionsTest, TheTableNamesTypesAndKeepsExactBytes)
{
    EXPECT_EQ(Run({"partitions", "5"}), 0);

    EXPECT_EQ(out, "NO     START    LENGTH      SIZE  TYPE        NAME      FS    LETTER  DEVICE\n"
                   " 3   1048576  41943040  40.0 MiB  Basic data  Daten ü\uFFFD  NTFS  C:      "
                   "\\Device\\HarddiskVolume1\n"
                   " 4  42991616   1048576   1.0 MiB  0x77\n");
    EXPECT_EQ(library.listedDisks, (std::vector<uint32_t>{5, 5}));
}

TEST_F(PartitionsTest, TheLongTableHasTheOtherFields)
{
    EXPECT_EQ(Run({"partitions", "--long", "0"}), 0);

    EXPECT_THAT(out, HasSubstr("41942528  ebd0a0a2-b9e5-4433-87c0-68b6b72699c7  \\\\?\\Volume{1}\\\n"));
}

TEST_F(PartitionsTest, JsonHasEveryField)
{
    EXPECT_EQ(Run({"partitions", "0", "--json"}), 0);

    const auto document = nlohmann::ordered_json::parse(out);
    EXPECT_EQ(document["disk"], 0);
    EXPECT_EQ(document["partitions"][0].dump(),
              R"({"number":3,"startOffset":1048576,"length":41943040,)"
              R"("typeGuid":"ebd0a0a2-b9e5-4433-87c0-68b6b72699c7","mbrType":0,"typeName":"Basic data",)"
              R"("name":"Daten ü)"
              "\uFFFD"
              R"(","driveLetter":"C:","fileSystemSize":41942528,"fileSystemName":"NTFS",)"
              R"("deviceName":"\\Device\\HarddiskVolume1","volumePath":"\\\\?\\Volume{1}\\"})");
    EXPECT_EQ(document["partitions"][1]["typeGuid"], "00000000-0000-0000-0000-000000000000");
    EXPECT_EQ(document["partitions"][1]["mbrType"], 0x77);
    EXPECT_EQ(document["partitions"][1]["typeName"], "");
}

TEST_F(PartitionsTest, FieldsWithoutATerminatorEndWithTheirRoom)
{
    SetText(library.partitions[0].name, std::u16string(36, u'n'));
    SetText(library.partitions[0].deviceName, std::u16string(48, u'd'));

    EXPECT_EQ(Run({"partitions", "0", "--json"}), 0);

    const auto document = nlohmann::json::parse(out);
    EXPECT_EQ(document["partitions"][0]["name"], std::string(36, 'n'));
    EXPECT_EQ(document["partitions"][0]["deviceName"], std::string(48, 'd'));
}

TEST_F(PartitionsTest, ControlCharactersOfANameNeverReachTheTerminal)
{
    SetText(library.partitions[0].name, u"a\x1B[2Jb\u009Bc");

    EXPECT_EQ(Run({"partitions", "0"}), 0);

    EXPECT_THAT(out, HasSubstr("a\uFFFD[2Jb\uFFFDc"));
}

TEST_F(PartitionsTest, ADiskWithoutPartitionsIsNoFailure)
{
    library.partitions.clear();

    EXPECT_EQ(Run({"partitions", "2"}), 0);
    EXPECT_EQ(out, "Disk 2 has no partitions.\n");
}

TEST_F(PartitionsTest, AFailureIsNamedOnTheErrorStream)
{
    library.partitionsStatus = static_cast<KK_STATUS>(0xC0000034);

    EXPECT_EQ(Run({"partitions", "9"}), 1);

    EXPECT_EQ(out, "");
    EXPECT_EQ(err, "kkctl: listing the partitions of disk 9: 0xC0000034 STATUS_OBJECT_NAME_NOT_FOUND "
                   "(there is no disk, volume or file of this name)\n");
}

class FreeRegionsOfADiskTest : public PartitionsTest {
protected:
    FreeRegionsOfADiskTest()
    {
        KkDiskInfo disk = {};
        disk.number = 5;
        disk.size = 64 << 20;
        disk.sectorSize = 512;
        disk.partitionStyle = KK_PARTITION_STYLE_GPT;
        KkDiskInfo other = disk;
        other.number = 0;
        other.size = 1ull << 40;
        library.disks = {other, disk};
    }
};

TEST_F(FreeRegionsOfADiskTest, TheyFollowInATableOfTheirOwn)
{
    EXPECT_EQ(Run({"partitions", "5"}), 0);

    EXPECT_THAT(out, HasSubstr("0x77\n"
                               "\n"
                               "FREE FROM    LENGTH      SIZE\n"
                               " 44040192  23051264  21.9 MiB\n"));
}

TEST_F(FreeRegionsOfADiskTest, TheyArePartOfTheJson)
{
    EXPECT_EQ(Run({"partitions", "5", "--json"}), 0);

    const auto document = nlohmann::ordered_json::parse(out);
    EXPECT_EQ(document["partitions"].size(), 2u);
    EXPECT_EQ(document["freeRegions"].dump(), R"([{"startOffset":44040192,"length":23051264}])");
}

TEST_F(FreeRegionsOfADiskTest, ADiskThatTheLibraryDoesNotListHasNone)
{
    EXPECT_EQ(Run({"partitions", "6", "--json"}), 0);

    EXPECT_EQ(nlohmann::json::parse(out)["freeRegions"].dump(), "[]");
}

TEST_F(FreeRegionsOfADiskTest, ADiskWithoutPartitionsHasThemToo)
{
    library.partitions.clear();

    EXPECT_EQ(Run({"partitions", "5"}), 0);

    EXPECT_EQ(out, "Disk 5 has no partitions.\n"
                   "\n"
                   "FREE FROM    LENGTH      SIZE\n"
                   "  1048576  66042880  62.9 MiB\n");
}
