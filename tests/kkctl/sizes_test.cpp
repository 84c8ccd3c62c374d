#include "sizes.h"

#include <gtest/gtest.h>

namespace kkctl {

TEST(SizesTest, SizesAreWrittenInTheLargestUnitThatFits)
{
    EXPECT_EQ(FormatSize(0), "0 B");
    EXPECT_EQ(FormatSize(1023), "1023 B");
    EXPECT_EQ(FormatSize(1024), "1.0 KiB");
    EXPECT_EQ(FormatSize(1536), "1.5 KiB");
    EXPECT_EQ(FormatSize((1 << 20) - 1), "1023.9 KiB");
    EXPECT_EQ(FormatSize(64 << 20), "64.0 MiB");
    EXPECT_EQ(FormatSize(512110190592), "476.9 GiB");
    EXPECT_EQ(FormatSize(UINT64_MAX), "15.9 EiB");
}

TEST(SizesTest, SuffixesArePowersOf1024)
{
    EXPECT_EQ(ParseSize("0"), 0u);
    EXPECT_EQ(ParseSize("512"), 512u);
    EXPECT_EQ(ParseSize("3K"), 3u << 10);
    EXPECT_EQ(ParseSize("3k"), 3u << 10);
    EXPECT_EQ(ParseSize("64M"), 64u << 20);
    EXPECT_EQ(ParseSize("2g"), 2ull << 30);
    EXPECT_EQ(ParseSize("5T"), 5ull << 40);
    EXPECT_EQ(ParseSize("18446744073709551615"), UINT64_MAX);
    EXPECT_EQ(ParseSize("16777215T"), 16777215ull << 40);
}

TEST(SizesTest, EverythingElseIsRefused)
{
    for (const char* const text :
         {"", "K", "-1", "+1", " 1", "1 ", "1.5G", "1X", "1KB", "1KK", "0x10", "16777216T", "18446744073709551616"}) {
        EXPECT_EQ(ParseSize(text), std::nullopt) << text;
    }
}

}  // namespace kkctl
