#include "core/checked_math.h"

#include <gtest/gtest.h>

namespace kk {
namespace {

constexpr uint64_t kMax = UINT64_MAX;

TEST(SaturatingAddTest, IsExactUpToTheLargestNumber)
{
    EXPECT_EQ(SaturatingAdd(2, 3), 5u);
    EXPECT_EQ(SaturatingAdd(kMax, 0), kMax);
    EXPECT_EQ(SaturatingAdd(0, kMax), kMax);
    EXPECT_EQ(SaturatingAdd(kMax - 1, 1), kMax);
    EXPECT_EQ(SaturatingAdd(kMax - 2, 1), kMax - 1);
}

TEST(SaturatingAddTest, StaysAtTheLargestNumber)
{
    EXPECT_EQ(SaturatingAdd(kMax, 1), kMax);
    EXPECT_EQ(SaturatingAdd(2, kMax), kMax);
    EXPECT_EQ(SaturatingAdd(kMax, kMax), kMax);
}

TEST(SaturatingMultiplyTest, IsExactUpToTheLargestNumber)
{
    EXPECT_EQ(SaturatingMultiply(6, 7), 42u);
    EXPECT_EQ(SaturatingMultiply(0, kMax), 0u);
    EXPECT_EQ(SaturatingMultiply(kMax, 0), 0u);
    EXPECT_EQ(SaturatingMultiply(kMax, 1), kMax);
    EXPECT_EQ(SaturatingMultiply(uint64_t{1} << 32, 0xFFFFFFFF), uint64_t{0xFFFFFFFF} << 32);
}

TEST(SaturatingMultiplyTest, StaysAtTheLargestNumber)
{
    EXPECT_EQ(SaturatingMultiply(uint64_t{1} << 32, uint64_t{1} << 32), kMax);
    EXPECT_EQ(SaturatingMultiply(kMax, 2), kMax);
    EXPECT_EQ(SaturatingMultiply(3, kMax / 3 + 1), kMax);
    EXPECT_EQ(SaturatingMultiply(3, kMax / 3), kMax / 3 * 3);
}

TEST(SaturatingRoundUpTest, FindsTheNextMultiple)
{
    EXPECT_EQ(SaturatingRoundUp(0, 4096), 0u);
    EXPECT_EQ(SaturatingRoundUp(1, 4096), 4096u);
    EXPECT_EQ(SaturatingRoundUp(4095, 4096), 4096u);
    EXPECT_EQ(SaturatingRoundUp(4096, 4096), 4096u);
    EXPECT_EQ(SaturatingRoundUp(10, 7), 14u);
}

TEST(SaturatingRoundUpTest, StaysAtTheLargestNumber)
{
    EXPECT_EQ(SaturatingRoundUp(kMax, 4096), kMax);
    EXPECT_EQ(SaturatingRoundUp(kMax - 4094, 4096), kMax);
    EXPECT_EQ(SaturatingRoundUp(kMax - 4095, 4096), kMax - 4095);
}

TEST(MinMaxTest, ChooseEitherSide)
{
    EXPECT_EQ(Min(1, 2), 1);
    EXPECT_EQ(Min(2, 1), 1);
    EXPECT_EQ(Max(1, 2), 2);
    EXPECT_EQ(Max(2, 1), 2);
}

}  // namespace
}  // namespace kk
