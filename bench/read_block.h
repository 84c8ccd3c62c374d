#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace bench {

/// Memory that is only read: the least that looking at so many bytes can take.
class ReadBlock {
public:
    explicit ReadBlock(size_t bytes) : bytes_(bytes) {}

    /// Writes the block, so that it is as warm as the library finds what the system has just put there, and takes the
    /// time of reading it. The median of a few times.
    double SecondsToRead();

private:
    std::vector<uint8_t> bytes_;
};

/// Bytes a second, of a block that no cache holds.
double MemoryReadSpeed();

}  // namespace bench
