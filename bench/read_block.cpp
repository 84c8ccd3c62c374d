#include "read_block.h"

#include <cstring>

#include "figure.h"

namespace bench {

namespace {

/// Reads whole words, several at a time, in a way that cannot be left out.
void ReadWords(const uint8_t* bytes, size_t count)
{
    constexpr size_t words = 8;
    uint64_t sums[words] = {};
    for (size_t i = 0; i + sizeof(sums) <= count; i += sizeof(sums)) {
        uint64_t some[words];
        std::memcpy(some, bytes + i, sizeof(some));
        for (size_t word = 0; word < words; ++word) {
            sums[word] |= some[word];
        }
    }
    asm volatile("" : : "r"(&sums) : "memory");
}

double TimeOfReading(const std::vector<uint8_t>& bytes)
{
    const double started = NowSeconds();
    ReadWords(bytes.data(), bytes.size());
    return NowSeconds() - started;
}

}  // namespace

double ReadBlock::SecondsToRead()
{
    constexpr int runs = 5;
    std::vector<double> seconds;
    for (int i = 0; i < runs; ++i) {
        std::memset(bytes_.data(), 0x5A, bytes_.size());
        asm volatile("" : : "r"(bytes_.data()) : "memory");
        seconds.push_back(TimeOfReading(bytes_));
    }
    return Median(std::move(seconds));
}

double MemoryReadSpeed()
{
    constexpr size_t blockBytes = size_t{512} << 20;
    constexpr int runs = 5;
    const std::vector<uint8_t> block(blockBytes, 0x5A);
    std::vector<double> seconds;
    for (int i = 0; i < runs; ++i) {
        seconds.push_back(TimeOfReading(block));
    }
    return static_cast<double>(blockBytes) / Median(std::move(seconds));
}

}  // namespace bench
