#include "zlib_crc32.h"

#include <dlfcn.h>
#include <stdexcept>

namespace bench {

ZlibCrc32::ZlibCrc32() : library_(dlopen("libz.so.1", RTLD_NOW))
{
    if (library_ == nullptr) {
        throw std::runtime_error("there is no libz.so.1");
    }
    function_ = reinterpret_cast<Function>(dlsym(library_, "crc32"));
    if (function_ == nullptr) {
        dlclose(library_);
        throw std::runtime_error("libz.so.1 has no crc32");
    }
}

ZlibCrc32::~ZlibCrc32()
{
    dlclose(library_);
}

uint32_t ZlibCrc32::operator()(std::span<const uint8_t> bytes) const
{
    return static_cast<uint32_t>(function_(0, bytes.data(), static_cast<unsigned int>(bytes.size())));
}

}  // namespace bench
