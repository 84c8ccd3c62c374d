#include <fstream>
#include <regex>
#include <sstream>
#include <string>

#include <gmock/gmock.h>

#include "number_list.h"
#include "partition_types.h"
#include "progress.h"
#include "status_names.h"
#include "table.h"

namespace kkctl {

TEST(StatusNamesTest, StatusesOfTheLibraryBearTheNamesOfItsHeader)
{
    EXPECT_EQ(DescribeStatus({KK_STATUS_NO_MEMORY}), "0xC0000017 KK_STATUS_NO_MEMORY (memory ran out)");
    EXPECT_EQ(DescribeStatus({KK_STATUS_SUCCESS}), "0x00000000 KK_STATUS_SUCCESS (success)");
}

TEST(StatusNamesTest, EveryStatusOfTheHeaderHasAName)
{
    std::ifstream header(KK_PUBLIC_HEADER);
    const std::regex definition(R"(#define (KK_\w+) \(\(KK_STATUS\)(\w+)\))");
    size_t count = 0;
    for (std::string line; std::getline(header, line);) {
        if (std::smatch parts; std::regex_match(line, parts, definition)) {
            const auto value = static_cast<KK_STATUS>(std::stoul(parts[2], nullptr, 0));
            EXPECT_THAT(DescribeStatus({value}), testing::HasSubstr(" " + parts[1].str() + " ("));
            ++count;
        }
    }
    EXPECT_GT(count, 10u);
}

TEST(StatusNamesTest, StatusesOfTheSystemBearItsNames)
{
    EXPECT_EQ(DescribeStatus({static_cast<KK_STATUS>(0xC0000043)}),
              "0xC0000043 STATUS_SHARING_VIOLATION (the file or device is in use by another program)");
    EXPECT_EQ(DescribeStatus({static_cast<KK_STATUS>(0x80070050)}),
              "0x80070050 HRESULT of ERROR_FILE_EXISTS (the file exists already)");
}

TEST(StatusNamesTest, OtherResultsTellTheSystemErrorThatIsInThem)
{
    EXPECT_EQ(DescribeStatus({static_cast<KK_STATUS>(0x800700E8)}),
              "0x800700E8 (system error 232, which \"net helpmsg 232\" explains)");
    EXPECT_EQ(DescribeStatus({static_cast<KK_STATUS>(0x8007000D)}),
              "0x8007000D (system error 13, which \"net helpmsg 13\" explains; "
              "or 0xC03A000D of the virtual-disk service, cut to 16 bits)");
}

TEST(StatusNamesTest, UnknownStatusesKeepTheirNumber)
{
    EXPECT_EQ(DescribeStatus({static_cast<KK_STATUS>(0xC0FFEE00)}),
              "0xC0FFEE00 (a status of the system without a name here)");
    EXPECT_EQ(DescribeStatus({0x105}), "0x00000105 (success)");
}

TEST(TableTest, ColumnsAreAsWideAsTheirWidestCellAndLinesEndWithText)
{
    Table table({{"N", Align::Right}, {"NAME"}, {"X"}});
    table.AddRow({"1", "ü", "x"});
    table.AddRow({"100", "longer", ""});

    std::ostringstream out;
    table.Print(out);

    EXPECT_EQ(out.str(), "  N  NAME    X\n"
                         "  1  ü       x\n"
                         "100  longer\n");
}

TEST(PartitionTypesTest, GuidsAreTextInTheirMixedByteOrder)
{
    const GuidBytes efi = {0x28, 0x73, 0x2A, 0xC1, 0x1F, 0xF8, 0xD2, 0x11,
                           0xBA, 0x4B, 0x00, 0xA0, 0xC9, 0x3E, 0xC9, 0x3B};

    EXPECT_EQ(FormatGuid(efi), "c12a7328-f81f-11d2-ba4b-00a0c93ec93b");
    EXPECT_EQ(GptTypeName(efi), "EFI system");
    EXPECT_EQ(GptTypeName({1}), "");
}

TEST(PartitionTypesTest, WellKnownMbrTypesHaveNames)
{
    EXPECT_EQ(MbrTypeName(0x07), "NTFS/exFAT");
    EXPECT_EQ(MbrTypeName(0x77), "");
}

TEST(NumberListTest, NumbersAreSeparatedByCommas)
{
    EXPECT_EQ(ParseNumberList("7"), (std::vector<uint32_t>{7}));
    EXPECT_EQ(ParseNumberList("1,3,4294967295"), (std::vector<uint32_t>{1, 3, UINT32_MAX}));
    for (const char* const text : {"", ",", "1,", ",1", "1,,2", "1, 2", "x", "-1", "4294967296"}) {
        EXPECT_EQ(ParseNumberList(text), std::nullopt) << text;
    }
}

TEST(ProgressTest, TheLineTellsAmountShareAndRate)
{
    using std::chrono::milliseconds;

    EXPECT_EQ(ProgressLine(0, {64 << 20, false}, milliseconds(0)), "0 B of 64.0 MiB (0 %)");
    EXPECT_EQ(ProgressLine(16 << 20, {64 << 20, false}, milliseconds(500)), "16.0 MiB of 64.0 MiB (25 %), 32.0 MiB/s");
    EXPECT_EQ(ProgressLine(65 << 20, {64 << 20, true}, milliseconds(1000)),
              "65.0 MiB of at most 64.0 MiB (100 %), 65.0 MiB/s");
    EXPECT_EQ(ProgressLine(512, {0, false}, milliseconds(1000)), "512 B, 512 B/s");
}

TEST(ProgressTest, ALineIsWipedOutByTheNextAndInTheEnd)
{
    std::ostringstream terminal;
    {
        const Progress progress(terminal, {1024, false}, [] { return uint64_t{1024}; });
    }
    const std::string text = terminal.str();

    EXPECT_EQ(text.substr(0, 21), "\r\r1.0 KiB of 1.0 KiB ");
    EXPECT_EQ(text.back(), '\r');
    EXPECT_EQ(text[text.size() - 2], ' ');
}

}  // namespace kkctl
