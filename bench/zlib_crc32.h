#pragma once

#include <cstdint>
#include <span>

namespace bench {

/// The same by the zlib that is installed, which has tables. Bound at run time: its header is not needed for anything
/// else.
class ZlibCrc32 {
public:
    /// Throws when there is no zlib.
    ZlibCrc32();
    ~ZlibCrc32();
    ZlibCrc32(const ZlibCrc32&) = delete;
    ZlibCrc32& operator=(const ZlibCrc32&) = delete;

    uint32_t operator()(std::span<const uint8_t> bytes) const;

private:
    using Function = unsigned long (*)(unsigned long crc, const uint8_t* bytes, unsigned int length);

    void* library_ = nullptr;
    Function function_ = nullptr;
};

}  // namespace bench
