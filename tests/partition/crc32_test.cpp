#include "partition/crc32.h"

#include <gtest/gtest.h>

#include <array>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "support/shell.h"

namespace kk {
namespace {

uint32_t CrcOf(const std::string& text)
{
    return Crc32(text.data(), text.size());
}

TEST(Crc32Test, HasTheStandardCheckValue)
{
    EXPECT_EQ(CrcOf("123456789"), 0xCBF43926u);
}

TEST(Crc32Test, OfNothingIsZero)
{
    EXPECT_EQ(Crc32(nullptr, 0), 0u);
    EXPECT_EQ(Crc32("x", 0), 0u);
}

TEST(Crc32Test, OfKnownTextsIsKnown)
{
    EXPECT_EQ(CrcOf("a"), 0xE8B7BE43u);
    EXPECT_EQ(CrcOf("abc"), 0x352441C2u);
    EXPECT_EQ(CrcOf("The quick brown fox jumps over the lazy dog"), 0x414FA339u);
    EXPECT_EQ(CrcOf(std::string(4, '\0')), 0x2144DF1Cu);
    EXPECT_EQ(CrcOf(std::string(4, '\xFF')), 0xFFFFFFFFu);
}

/// The usual way to compute it, a byte at a time from a table.
uint32_t CrcByTable(const std::vector<uint8_t>& bytes)
{
    std::array<uint32_t, 256> table;
    for (uint32_t i = 0; i < table.size(); ++i) {
        uint32_t value = i;
        for (int bit = 0; bit < 8; ++bit) {
            value = (value & 1) != 0 ? 0xEDB88320 ^ (value >> 1) : value >> 1;
        }
        table[i] = value;
    }
    uint32_t crc = 0xFFFFFFFF;
    for (const uint8_t byte : bytes) {
        crc = table[(crc ^ byte) & 0xFF] ^ (crc >> 8);
    }
    return crc ^ 0xFFFFFFFF;
}

std::vector<uint8_t> RandomBytes(size_t count)
{
    std::mt19937 random(static_cast<uint32_t>(count));
    std::vector<uint8_t> bytes(count);
    for (uint8_t& byte : bytes) {
        byte = static_cast<uint8_t>(random());
    }
    return bytes;
}

TEST(Crc32Test, AgreesWithTheTableMethodForEveryLength)
{
    for (size_t count = 0; count < 600; ++count) {
        const std::vector<uint8_t> bytes = RandomBytes(count);
        EXPECT_EQ(Crc32(bytes.data(), count), CrcByTable(bytes)) << count;
    }
}

TEST(Crc32Test, AgreesWithAnotherImplementation)
{
    const TemporaryFolder folder;
    for (const size_t count : {92u, 16384u, 100001u}) {
        const std::vector<uint8_t> bytes = RandomBytes(count);
        std::ofstream(folder / "bytes", std::ios::binary)
            .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(count));
        const std::string answer = Shell("python3 -c \"import zlib; print(zlib.crc32(open('" +
                                         (folder / "bytes").string() + "', 'rb').read()))\"");

        EXPECT_EQ(std::to_string(Crc32(bytes.data(), count)) + "\n", answer);
    }
}

}  // namespace
}  // namespace kk
