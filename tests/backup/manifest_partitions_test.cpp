#include <vector>

#include "core/nt.h"
#include "manifest_fixture.h"
#include "support/hook.h"

namespace {

/// A name of 36 units, all in use.
std::u16string FullName(char16_t unit)
{
    return std::u16string(kk::kPartitionNameUnits, unit);
}

TEST_F(ManifestTest, NamesAreEscapedAndOtherwiseRaw)
{
    AddPartition(1, kMiB, kMiB, u"a\"\\\n\t\x01/\x7F é 名 \xD83D\xDE00");

    EXPECT_EQ(Member(Manifest(), "name"), "\"a\\\"\\\\\\n\\t\\u0001/\x7F \xC3\xA9 \xE5\x90\x8D \xF0\x9F\x98\x80\"");
}

TEST_F(ManifestTest, ANameEndsAtItsTerminator)
{
    AddPartition(1, kMiB, kMiB, std::u16string_view(u"abc\0def", 7));

    EXPECT_EQ(Member(Manifest(), "name"), "\"abc\"");
}

TEST_F(ManifestTest, ANameOfAllUnitsNeedsNoTerminator)
{
    // Whatever follows the name in memory must not become a part of it.
    AddPartition(1, kMiB, kMiB, FullName(u'n')).mbrType = 'x';

    EXPECT_EQ(Member(Manifest(), "name"), '"' + std::string(36, 'n') + '"');
}

TEST_F(ManifestTest, TheLongestNamesFit)
{
    AddPartition(1, kMiB, kMiB, FullName(u'\xFFFD'));
    std::string expected;
    for (int i = 0; i < 36; ++i) {
        expected += "\xEF\xBF\xBD";
    }

    EXPECT_EQ(Member(Manifest(), "name"), '"' + expected + '"');
}

TEST_F(ManifestTest, LoneSurrogatesBecomeReplacementCharacters)
{
    AddPartition(1, kMiB, kMiB, u"a\xD800z\xDC00");

    EXPECT_EQ(Member(Manifest(), "name"), "\"a\xEF\xBF\xBDz\xEF\xBF\xBD\"");
}

TEST_F(ManifestTest, StrangeNamesLeaveAValidDocument)
{
    AddPartition(1, kMiB, kMiB, u"\xDFFF\xD800\x1F\x1\"");
    AddPartition(2, 2 * kMiB, kMiB, FullName(u'\xDBFF'));
    AddPartition(3, 4 * kMiB, kMiB, FullName(u'\x8'));
    std::u16string cutPair = FullName(u'p');
    cutPair.back() = u'\xD83D';
    AddPartition(4, 8 * kMiB, kMiB, cutPair);
    Write();

    const std::string file = "'" + ManifestFile().string() + "'";
    EXPECT_EQ(Shell("jq -e '.partitions | length' " + file), "4\n");
    EXPECT_EQ(Shell("python3 -c 'import json, sys; print(len(json.loads(open(sys.argv[1], \"rb\").read()"
                    ".decode(\"utf-8\"))[\"partitions\"]))' " +
                    file),
              "4\n");
}

TEST_F(ManifestTest, ConversionsMayFill127And7Bytes)
{
    machine.AddDisk(8 * kMiB).Mbr({.partitions = {{.start = kMiB, .length = kMiB}}});
    machine.AssignLetter(*machine.FindVolume(0, kMiB), u'Q');
    AddPartition(1, kMiB, kMiB, u"name");
    Write();

    const auto conversions = machine.journal.FindAll({.name = "RtlUnicodeToUTF8N"});
    ASSERT_EQ(conversions.size(), 2u);
    EXPECT_EQ(conversions[0].length, 127u);
    EXPECT_EQ(conversions[1].length, 7u);
}

TEST_F(ManifestTest, ANameThatDoesNotConvertIsEmpty)
{
    machine.faults.Fail({.name = "RtlUnicodeToUTF8N"}, 1, 0xC000000D);
    AddPartition(1, kMiB, kMiB, u"lost");
    AddPartition(2, 2 * kMiB, kMiB, u"kept");

    const std::string text = Manifest();

    EXPECT_EQ(Member(text, "name"), "\"\"");
    EXPECT_NE(text.find("\"name\":\"kept\""), std::string::npos);
}

TEST_F(ManifestTest, TheCountOfAConversionIsTakenWhateverItsStatus)
{
    const Hook<&RtlUnicodeToUTF8N> hook([](char* output, uint32_t, uint32_t* length, const char16_t*, uint32_t) {
        EXPECT_EQ(*length, 0u);
        output[0] = 'o';
        output[1] = 'k';
        *length = 2;
        return Status(0xC0000023);
    });
    AddPartition(1, kMiB, kMiB, u"name");

    EXPECT_EQ(Member(Manifest(), "name"), "\"ok\"");
}

TEST_F(ManifestTest, ACountBeyondTheRoomIsCut)
{
    const Hook<&RtlUnicodeToUTF8N> hook([](char* output, uint32_t limit, uint32_t* length, const char16_t*, uint32_t) {
        std::fill_n(output, limit, 'c');
        *length = 0xFFFFFFFF;
        return Status(0);
    });
    AddPartition(1, kMiB, kMiB, u"name");

    EXPECT_EQ(Member(Manifest(), "name"), '"' + std::string(127, 'c') + '"');
}

TEST_F(ManifestTest, TheLetterIsThatOfTheVolumeOnTheSourceDisk)
{
    for (const uint32_t number : {0u, 1u}) {
        machine.AddDisk(16 * kMiB, {.number = number})
            .Mbr({.partitions = {{.start = kMiB, .length = kMiB}, {.start = 4 * kMiB, .length = kMiB}}});
    }
    machine.AssignLetter(*machine.FindVolume(0, kMiB), u'D');
    machine.AssignLetter(*machine.FindVolume(1, kMiB), u'E');
    request.diskNumber = 1;
    AddPartition(1, kMiB, kMiB);
    AddPartition(2, 4 * kMiB, kMiB);
    AddPartition(3, 8 * kMiB, kMiB);
    Plan(0, 4 * kMiB);

    const std::string text = Partitions(Manifest());

    // The first is looked up where it came from, the second has no letter, the third no volume.
    EXPECT_EQ(Member(text, "driveLetter"), "\"E:\"");
    EXPECT_EQ(Member(text.substr(text.find("\"index\":2")), "driveLetter"), "\"\"");
    EXPECT_EQ(Member(text.substr(text.find("\"index\":3")), "driveLetter"), "\"\"");
}

TEST_F(ManifestTest, PartitionsThatWereNotChosenKeepTheirLetterToo)
{
    machine.AddDisk(16 * kMiB).Mbr({.partitions = {{.start = kMiB, .length = kMiB}}});
    machine.AssignLetter(*machine.FindVolume(0, kMiB), u'D');
    const std::vector<uint32_t> chosen = {9};
    request.partitionNumbers = chosen.data();
    request.partitionCount = 1;
    AddPartition(1, kMiB, kMiB);

    EXPECT_EQ(Member(Manifest(), "driveLetter"), "\"D:\"");
}

TEST_F(ManifestTest, WithoutASelectionEveryPartitionIsPresent)
{
    request.removeOmitted = true;
    AddPartition(7, kMiB, kMiB);
    AddPartition(2, 4 * kMiB, 2 * kMiB);
    Plan(1, 4 * kMiB);
    Plan(0, kMiB);

    EXPECT_EQ(Partitions(Manifest()),
              "[" + Element(7, kMiB, kMiB, kMiB, true) + "," + Element(2, 4 * kMiB, 4 * kMiB, 2 * kMiB, true) + "]");
}

TEST_F(ManifestTest, KeptPartitionsThatWereNotChosenStayWhereTheyWere)
{
    const std::vector<uint32_t> chosen = {9, 2};
    request.partitionNumbers = chosen.data();
    request.partitionCount = 2;
    AddPartition(1, kMiB, kMiB);
    AddPartition(2, 4 * kMiB, 2 * kMiB);
    Plan(0, 100 * kMiB);
    Plan(1, 200 * kMiB);

    EXPECT_EQ(Partitions(Manifest()),
              "[" + Element(1, kMiB, kMiB, kMiB, false) + "," + Element(2, 200 * kMiB, 4 * kMiB, 2 * kMiB, true) + "]");
}

TEST_F(ManifestTest, RemovedPartitionsAreNotListed)
{
    const std::vector<uint32_t> chosen = {2};
    request.partitionNumbers = chosen.data();
    request.partitionCount = 1;
    request.removeOmitted = true;
    AddPartition(1, kMiB, kMiB);
    AddPartition(2, 4 * kMiB, 2 * kMiB);
    AddPartition(3, 8 * kMiB, 2 * kMiB);
    Plan(1, kMiB);

    EXPECT_EQ(Partitions(Manifest()), "[" + Element(2, kMiB, 4 * kMiB, 2 * kMiB, true) + "]");
}

TEST_F(ManifestTest, OnlyAsManyNumbersAsCountedChoose)
{
    const std::vector<uint32_t> chosen = {1, 2};
    request.partitionNumbers = chosen.data();
    request.partitionCount = 1;
    request.removeOmitted = true;
    AddPartition(1, kMiB, kMiB);
    AddPartition(2, 4 * kMiB, kMiB);

    EXPECT_EQ(Partitions(Manifest()), "[" + Element(1, kMiB, kMiB, kMiB, true) + "]");
}

TEST_F(ManifestTest, ASelectionOfNothingLeavesAnEmptyArray)
{
    const std::vector<uint32_t> chosen = {5};
    request.partitionNumbers = chosen.data();
    request.partitionCount = 1;
    request.removeOmitted = true;
    AddPartition(1, kMiB, kMiB);

    EXPECT_EQ(Partitions(Manifest()), "[]");
}

TEST_F(ManifestTest, ADiskWithoutPartitionsLeavesAnEmptyArray)
{
    EXPECT_EQ(Partitions(Manifest()), "[]");
}

TEST_F(ManifestTest, TheOffsetIsThatOfThisVeryPartition)
{
    // Two with the same number and the same start: only the second was planned.
    AddPartition(1, kMiB, kMiB);
    AddPartition(1, kMiB, 2 * kMiB);
    Plan(1, 64 * kMiB);

    EXPECT_EQ(Partitions(Manifest()),
              "[" + Element(1, kMiB, kMiB, kMiB, true) + "," + Element(1, 64 * kMiB, kMiB, 2 * kMiB, true) + "]");
}

TEST_F(ManifestTest, TheFirstPlanEntryOfAPartitionCounts)
{
    AddPartition(1, kMiB, kMiB);
    AddPartition(2, 2 * kMiB, kMiB);
    Plan(1, 30 * kMiB);
    Plan(0, 10 * kMiB);
    Plan(0, 20 * kMiB);

    EXPECT_EQ(Member(Partitions(Manifest()), "offset"), std::to_string(10 * kMiB));
}

TEST_F(ManifestTest, PartitionsAreListedInLayoutOrderAlsoWhenPacked)
{
    request.compact = 1;
    request.removeOmitted = true;
    AddPartition(2, 80 * kMiB, kMiB);
    AddPartition(1, 40 * kMiB, kMiB);
    Plan(1, kMiB);
    Plan(0, 2 * kMiB);

    EXPECT_EQ(Partitions(Manifest()),
              "[" + Element(2, 2 * kMiB, 80 * kMiB, kMiB, true) + "," + Element(1, kMiB, 40 * kMiB, kMiB, true) + "]");
}

}  // namespace
