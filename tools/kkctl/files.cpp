#include "files.h"

#include <filesystem>

namespace kkctl {

bool FileExists(const std::string& path)
{
    std::error_code error;
    return std::filesystem::exists(std::filesystem::path(std::u8string(path.begin(), path.end())), error);
}

WideString LibraryPathWithin(const Kit& kit, const std::string& path, size_t maxUnits, const std::string& use)
{
    WideString wide = kit.ToLibraryPath(path);
    if (wide.size() > maxUnits) {
        throw PathError("'" + path + "' is too long for " + use);
    }
    return wide;
}

}  // namespace kkctl
