#pragma once

#include <cstddef>
#include <filesystem>

namespace bench {

struct Settings {
    std::filesystem::path dll = KK_DLL;
    std::filesystem::path folder = {};  // holds disk.raw and volume.raw, and has room for two copies of them
    size_t longPairs = 9;               // of runs that take seconds
    size_t shortPairs = 41;             // of runs that take milliseconds
};

}  // namespace bench
