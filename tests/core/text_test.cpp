#include "core/text.h"

#include <gtest/gtest.h>

#include <array>
#include <functional>
#include <memory>
#include <string>

#include "kestrelkit/kestrelkit.h"

namespace kk {
namespace {

/// What a function left in a buffer of `capacity` units, which ends where the memory does: its text, and where it
/// says that it stopped.
struct Written {
    std::u16string text;
    size_t position;

    friend bool operator==(const Written&, const Written&) = default;
};

Written Write(size_t capacity, size_t position, const std::function<void(char16_t*, size_t, size_t&)>& append)
{
    const auto buffer = std::make_unique<char16_t[]>(capacity);
    std::fill_n(buffer.get(), capacity, u'#');
    append(buffer.get(), capacity, position);
    std::u16string text(buffer.get(), capacity);
    return {text.substr(0, text.find(u'\0')), position};
}

TEST(TextLengthTest, CountsUnitsBeforeTheTerminator)
{
    EXPECT_EQ(TextLength(u""), 0u);
    EXPECT_EQ(TextLength(u"abc"), 3u);
    EXPECT_EQ(TextLength(u"ab\0c"), 2u);
}

TEST(TextLengthTest, ReadsNothingFromTheLimitOn)
{
    const auto text = std::make_unique<char16_t[]>(3);
    std::fill_n(text.get(), 3, u'x');

    EXPECT_EQ(TextLength(text.get(), 3), 3u);
    EXPECT_EQ(TextLength(text.get(), 2), 2u);
    EXPECT_EQ(TextLength(nullptr, 0), 0u);
    EXPECT_EQ(TextLength(u"ab", 9), 2u);
}

Written AppendTextTo(size_t capacity, size_t position, const char16_t* text)
{
    return Write(capacity, position, [&](auto* buffer, auto room, auto& at) { AppendText(buffer, room, at, text); });
}

TEST(AppendTextTest, WritesAtThePositionAndAdvancesIt)
{
    EXPECT_EQ(AppendTextTo(9, 0, u"abc"), (Written{u"abc", 3}));
    EXPECT_EQ(AppendTextTo(9, 2, u"abc"), (Written{u"##abc", 5}));
    EXPECT_EQ(AppendTextTo(9, 2, u""), (Written{u"##", 2}));
}

TEST(AppendTextTest, IsCutSoThatTheTerminatorFits)
{
    EXPECT_EQ(AppendTextTo(4, 0, u"abc"), (Written{u"abc", 3}));
    EXPECT_EQ(AppendTextTo(3, 0, u"abc"), (Written{u"ab", 2}));
    EXPECT_EQ(AppendTextTo(3, 2, u"abc"), (Written{u"##", 2}));
    EXPECT_EQ(AppendTextTo(1, 0, u"abc"), (Written{u"", 0}));
}

TEST(AppendTextTest, WritesNothingFromTheCapacityOn)
{
    EXPECT_EQ(AppendTextTo(0, 0, u"abc"), (Written{u"", 0}));
    EXPECT_EQ(AppendTextTo(2, 2, u"abc"), (Written{u"##", 2}));
    EXPECT_EQ(AppendTextTo(2, 7, u"abc"), (Written{u"##", 7}));
}

Written AppendUnitTo(size_t capacity, size_t position)
{
    return Write(capacity, position, [&](auto* buffer, auto room, auto& at) { AppendUnit(buffer, room, at, u'x'); });
}

TEST(AppendUnitTest, WritesOneUnitAndATerminatorWhereBothFit)
{
    EXPECT_EQ(AppendUnitTo(3, 0), (Written{u"x", 1}));
    EXPECT_EQ(AppendUnitTo(3, 1), (Written{u"#x", 2}));
    EXPECT_EQ(AppendUnitTo(3, 2), (Written{u"##", 2}));
    EXPECT_EQ(AppendUnitTo(3, 3), (Written{u"###", 3}));
    EXPECT_EQ(AppendUnitTo(0, 0), (Written{u"", 0}));
}

Written AppendDecimalTo(size_t capacity, size_t position, uint32_t value)
{
    return Write(capacity, position,
                 [&](auto* buffer, auto room, auto& at) { AppendDecimal(buffer, room, at, value); });
}

TEST(AppendDecimalTest, WritesTheDigitsWithoutLeadingZeros)
{
    EXPECT_EQ(AppendDecimalTo(20, 0, 0), (Written{u"0", 1}));
    EXPECT_EQ(AppendDecimalTo(20, 0, 9), (Written{u"9", 1}));
    EXPECT_EQ(AppendDecimalTo(20, 0, 10), (Written{u"10", 2}));
    EXPECT_EQ(AppendDecimalTo(20, 0, 127), (Written{u"127", 3}));
    EXPECT_EQ(AppendDecimalTo(20, 3, 4294967295), (Written{u"###4294967295", 13}));
    EXPECT_EQ(AppendDecimalTo(20, 0, 1000000000), (Written{u"1000000000", 10}));
}

TEST(AppendDecimalTest, KeepsTheLeadingDigitsWhenItIsCut)
{
    EXPECT_EQ(AppendDecimalTo(6, 0, 12345), (Written{u"12345", 5}));
    EXPECT_EQ(AppendDecimalTo(5, 0, 12345), (Written{u"1234", 4}));
    EXPECT_EQ(AppendDecimalTo(5, 3, 12345), (Written{u"###1", 4}));
    EXPECT_EQ(AppendDecimalTo(5, 4, 12345), (Written{u"####", 4}));
    EXPECT_EQ(AppendDecimalTo(1, 0, 7), (Written{u"", 0}));
}

TEST(AppendDecimalTest, WritesNothingFromTheCapacityOn)
{
    EXPECT_EQ(AppendDecimalTo(0, 0, 7), (Written{u"", 0}));
    EXPECT_EQ(AppendDecimalTo(3, 3, 7), (Written{u"###", 3}));
    EXPECT_EQ(AppendDecimalTo(3, 4, 7), (Written{u"###", 4}));
}

TEST(CopyTextTest, StartsAtTheFrontAndIsCut)
{
    std::array<char16_t, 4> buffer = {u'#', u'#', u'#', u'#'};

    CopyText(buffer.data(), 0, u"abcd");
    EXPECT_EQ(buffer[0], u'#');
    CopyText(buffer.data(), 3, u"abcd");
    EXPECT_EQ(buffer, (std::array<char16_t, 4>{u'a', u'b', 0, u'#'}));
    CopyText(buffer.data(), 4, u"");
    EXPECT_EQ(buffer[0], 0);
}

TEST(SameTextTest, HoldsForEqualTextAlone)
{
    EXPECT_TRUE(SameText(u"", u""));
    EXPECT_TRUE(SameText(u"RAW", u"RAW"));
    EXPECT_FALSE(SameText(u"RAW", u"RA"));
    EXPECT_FALSE(SameText(u"RA", u"RAW"));
    EXPECT_FALSE(SameText(u"RAW", u"raw"));
    EXPECT_FALSE(SameText(u"", u"R"));
}

TEST(FromCallerTest, IsTheSameText)
{
    const KkWideChar text[] = {u'a', 0};

    EXPECT_EQ(static_cast<const void*>(FromCaller(text)), static_cast<const void*>(text));
}

}  // namespace
}  // namespace kk
