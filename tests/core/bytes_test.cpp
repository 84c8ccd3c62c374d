#include "core/bytes.h"

#include <gtest/gtest.h>

#include <array>

namespace kk {
namespace {

template <typename T>
std::array<uint8_t, sizeof(T)> BytesOf(const T& value)
{
    std::array<uint8_t, sizeof(T)> bytes;
    CopyBytes(bytes.data(), &value, sizeof(T));
    return bytes;
}

TEST(LittleEndianTest, StoresTheLeastSignificantByteFirst)
{
    EXPECT_EQ(BytesOf(Le16(0x1234)), (std::array<uint8_t, 2>{0x34, 0x12}));
    EXPECT_EQ(BytesOf(Le32(0x12345678)), (std::array<uint8_t, 4>{0x78, 0x56, 0x34, 0x12}));
    EXPECT_EQ(BytesOf(Le64(0x0123456789ABCDEF)),
              (std::array<uint8_t, 8>{0xEF, 0xCD, 0xAB, 0x89, 0x67, 0x45, 0x23, 0x01}));
}

TEST(LittleEndianTest, GivesBackWhatWasSet)
{
    Le16 small;
    Le32 middle;
    Le64 large;

    EXPECT_EQ(small.Get() + middle.Get() + large.Get(), 0u);
    small.Set(0xFFFE);
    middle.Set(0x80000001);
    large.Set(0x8000000000000001);
    EXPECT_EQ(small.Get(), 0xFFFE);
    EXPECT_EQ(middle.Get(), 0x80000001);
    EXPECT_EQ(large.Get(), 0x8000000000000001);
}

TEST(LittleEndianTest, LiesAtAnyAddress)
{
    struct Record {
        uint8_t first;
        Le32 value;
    };

    EXPECT_EQ(sizeof(Record), 5u);
    EXPECT_EQ(alignof(Le64), 1u);
    EXPECT_EQ(sizeof(Le64), 8u);
}

TEST(LoadUnalignedTest, ReadsFromAnOddAddress)
{
    const std::array<uint8_t, 6> bytes = {0xFF, 0x78, 0x56, 0x34, 0x12, 0xFF};

    EXPECT_EQ(LoadUnaligned<uint32_t>(bytes.data() + 1), 0x12345678u);
}

}  // namespace
}  // namespace kk
