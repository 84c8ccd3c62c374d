#include "core/zero_scan.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

namespace kk {
namespace {

constexpr size_t kLongest = 300;
constexpr size_t kOddPlaces = 9;

TEST(ZeroScanTest, NoBytesAreAllZero)
{
    EXPECT_TRUE(IsAllZero(nullptr, 0));
}

TEST(ZeroScanTest, ZerosAreFoundZeroAtEveryAddressAndLength)
{
    for (size_t place = 0; place < kOddPlaces; ++place) {
        for (size_t length = 0; length <= kLongest; ++length) {
            // What lies around them does not count.
            std::vector<uint8_t> bytes(place + length + 1, 0xFF);
            std::fill_n(bytes.begin() + static_cast<ptrdiff_t>(place), length, uint8_t{0});
            ASSERT_TRUE(IsAllZero(bytes.data() + place, length)) << length << " at " << place;
        }
    }
}

TEST(ZeroScanTest, EveryOtherByteIsSeen)
{
    for (size_t place = 0; place < kOddPlaces; ++place) {
        for (size_t length = 1; length <= kLongest; ++length) {
            // As large as the block, so that a byte too many is noticed.
            std::vector<uint8_t> bytes(place + length);
            for (size_t position = 0; position < length; ++position) {
                bytes[place + position] = 1;
                ASSERT_FALSE(IsAllZero(bytes.data() + place, length)) << position << " of " << length;
                bytes[place + position] = 0;
            }
        }
    }
}

TEST(ZeroScanTest, EveryBitIsSeen)
{
    std::vector<uint8_t> bytes(1024);
    for (const size_t position : {0u, 7u, 8u, 127u, 128u, 1023u}) {
        for (uint32_t bit = 0; bit < 8; ++bit) {
            bytes[position] = static_cast<uint8_t>(1u << bit);
            EXPECT_FALSE(IsAllZero(bytes.data(), bytes.size())) << position << ", bit " << bit;
        }
        bytes[position] = 0;
    }
}

TEST(ZeroScanTest, OppositeBytesDoNotCancelEachOther)
{
    std::vector<uint8_t> bytes(256);
    bytes[8] = 0xFF;
    bytes[16] = 0x01;
    bytes[24] = 0xFF;
    EXPECT_FALSE(IsAllZero(bytes.data(), bytes.size()));
}

}  // namespace
}  // namespace kk
