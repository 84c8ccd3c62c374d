#include "text.h"

#include <gtest/gtest.h>

namespace kkctl {

TEST(TextTest, CharactersOfEveryLengthSurviveBothWays)
{
    const std::string utf8 = "aü€😀";
    const std::u16string utf16 = u"aü€😀";

    EXPECT_EQ(FromUtf8(utf8), utf16);
    EXPECT_EQ(ToUtf8(utf16), utf8);
    EXPECT_EQ(FromUtf8(""), u"");
}

TEST(TextTest, HalvesOfSurrogatePairsBecomeReplacementCharacters)
{
    EXPECT_EQ(ToUtf8(std::u16string{u'a', 0xD83D, u'b'}), "a\uFFFDb");
    EXPECT_EQ(ToUtf8(std::u16string{0xDE00, 0xD83D}), "\uFFFD\uFFFD");
}

TEST(TextTest, WhatIsNotUtf8IsRefused)
{
    for (const char* const text : {"\x80", "\xC3", "\xC3(", "\xC0\xAF", "\xE0\x80\xAF", "\xED\xA0\x80",
                                   "\xF4\x90\x80\x80", "\xF8\x88\x80\x80\x80", "\xFF", "a\xE2\x82"}) {
        EXPECT_EQ(FromUtf8(text), std::nullopt) << testing::PrintToString(text);
    }
}

TEST(TextTest, ControlCharactersAndBrokenBytesAreMadeHarmless)
{
    EXPECT_EQ(Printable("ü\x1B[1m\n\x7F\u0085x\xFF"), "ü\uFFFD[1m\uFFFD\uFFFD\uFFFDx\uFFFD");
}

TEST(TextTest, WidthCountsCharacters)
{
    EXPECT_EQ(DisplayWidth("aü€😀"), 4u);
}

}  // namespace kkctl
