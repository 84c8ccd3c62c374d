#include "line_words.h"

#include <gmock/gmock.h>

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Optional;

namespace kkctl {

TEST(LineWordsTest, BlanksPartWords)
{
    EXPECT_THAT(SplitWords("  partitions\t0 --json \r"), Optional(ElementsAre("partitions", "0", "--json")));
    EXPECT_THAT(SplitWords(" \t\r"), Optional(IsEmpty()));
    EXPECT_THAT(SplitWords(""), Optional(IsEmpty()));
}

TEST(LineWordsTest, QuotesKeepBlanksAndAreNotPartOfTheWord)
{
    EXPECT_THAT(SplitWords(R"(format "my disk" --label="a b"c)"),
                Optional(ElementsAre("format", "my disk", "--label=a bc")));
    EXPECT_THAT(SplitWords(R"("" a)"), Optional(ElementsAre("", "a")));
}

TEST(LineWordsTest, ADoubledQuoteWithinQuotesIsOne)
{
    EXPECT_THAT(SplitWords(R"("a ""b"" c" """")"), Optional(ElementsAre(R"(a "b" c)", "\"")));
}

TEST(LineWordsTest, BackslashesAreOrdinary)
{
    EXPECT_THAT(SplitWords(R"(D:\new\ "C:\my disk\" \\?\x)"),
                Optional(ElementsAre(R"(D:\new\)", R"(C:\my disk\)", R"(\\?\x)")));
}

TEST(LineWordsTest, AQuotationHasToEnd)
{
    EXPECT_EQ(SplitWords(R"(a "b)"), std::nullopt);
    EXPECT_EQ(SplitWords(R"(a")"), std::nullopt);
    EXPECT_EQ(SplitWords(R"("a"")"), std::nullopt);
}

}  // namespace kkctl
