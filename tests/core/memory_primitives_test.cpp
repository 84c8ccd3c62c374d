#include "core/memory_primitives.h"

#include <gtest/gtest.h>

#include <cstring>
#include <numeric>
#include <vector>

namespace kk::primitives {
namespace {

std::vector<uint8_t> Counting(size_t count)
{
    std::vector<uint8_t> bytes(count);
    std::iota(bytes.begin(), bytes.end(), uint8_t{1});
    return bytes;
}

TEST(CompareTest, EqualBytesGiveZero)
{
    const std::vector<uint8_t> a = Counting(300);
    const std::vector<uint8_t> b = Counting(300);

    EXPECT_EQ(Compare(a.data(), b.data(), a.size()), 0);
    EXPECT_EQ(Compare(a.data(), a.data(), a.size()), 0);
}

TEST(CompareTest, AnswersExactlyOneOrMinusOneHoweverFarApart)
{
    EXPECT_EQ(Compare("\x01", "\x09", 1), -1);
    EXPECT_EQ(Compare("\x09", "\x01", 1), 1);
}

TEST(CompareTest, TakesBytesAsUnsigned)
{
    EXPECT_EQ(Compare("\x7F", "\x80", 1), -1);
    EXPECT_EQ(Compare("\xFF", "\x00", 1), 1);
}

TEST(CompareTest, TheFirstDifferenceDecides)
{
    EXPECT_EQ(Compare("a\x02z", "a\x01~", 3), 1);
    EXPECT_EQ(Compare("a\x01~", "a\x02z", 3), -1);
}

TEST(CompareTest, GoesOnBehindZeroBytes)
{
    EXPECT_EQ(Compare("\0\0a", "\0\0b", 3), -1);
}

TEST(CompareTest, LooksAtTheCountAlone)
{
    EXPECT_EQ(Compare("abc", "abd", 2), 0);
    EXPECT_EQ(Compare("abc", "abd", 3), -1);
    EXPECT_EQ(Compare(nullptr, nullptr, 0), 0);
}

TEST(CopyForwardTest, CopiesExactlyTheCount)
{
    const std::vector<uint8_t> source = Counting(70);
    for (size_t count = 0; count <= source.size(); ++count) {
        std::vector<uint8_t> target(source.size() + 2, 0xEE);
        std::vector<uint8_t> expected = target;
        std::copy_n(source.begin(), count, expected.begin() + 1);

        CopyForward(target.data() + 1, source.data(), count);
        EXPECT_EQ(target, expected) << count;
    }
}

TEST(CopyForwardTest, MayReachIntoItsOwnSourceFromBelow)
{
    std::vector<uint8_t> bytes = Counting(40);
    std::vector<uint8_t> expected = bytes;
    std::memmove(expected.data(), expected.data() + 3, 37);

    CopyForward(bytes.data(), bytes.data() + 3, 37);
    EXPECT_EQ(bytes, expected);
}

TEST(CopyBackwardTest, MayReachIntoItsOwnSourceFromAbove)
{
    std::vector<uint8_t> bytes = Counting(40);
    std::vector<uint8_t> expected = bytes;
    std::memmove(expected.data() + 3, expected.data(), 37);

    CopyBackward(bytes.data() + 3, bytes.data(), 37);
    EXPECT_EQ(bytes, expected);
}

TEST(MoveTest, IsSafeAtEveryDistanceInBothDirections)
{
    constexpr size_t count = 24;
    for (size_t from = 0; from <= 48; ++from) {
        std::vector<uint8_t> bytes = Counting(48 + count);
        std::vector<uint8_t> expected = bytes;
        std::memmove(expected.data() + 24, expected.data() + from, count);

        Move(bytes.data() + 24, bytes.data() + from, count);
        EXPECT_EQ(bytes, expected) << from;
    }
}

TEST(MoveTest, OfNothingChangesNothing)
{
    std::vector<uint8_t> bytes = Counting(8);

    Move(bytes.data() + 1, bytes.data(), 0);
    Move(bytes.data(), bytes.data() + 1, 0);
    EXPECT_EQ(bytes, Counting(8));
}

TEST(FillTest, FillsExactlyTheCount)
{
    for (size_t count = 0; count <= 70; ++count) {
        std::vector<uint8_t> bytes(72, 0x11);
        std::vector<uint8_t> expected = bytes;
        std::fill_n(expected.begin() + 1, count, uint8_t{0xA5});

        Fill(bytes.data() + 1, 0xA5, count);
        EXPECT_EQ(bytes, expected) << count;
    }
}

}  // namespace
}  // namespace kk::primitives
