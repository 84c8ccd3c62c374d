#include "tiny_dll.h"

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace machine::test {

std::filesystem::path BuildTinyDll(const std::filesystem::path& folder, const std::string& source,
                                   const std::vector<std::string>& linkerOptions)
{
    const auto sourceFile = folder / "tiny.c";
    const auto library = folder / "tiny.dll";
    std::ofstream(sourceFile) << source;
    std::string command = "clang-19 --target=x86_64-w64-mingw32 -O1 -ffreestanding -nostdlib -shared -fuse-ld=lld-19"
                          " -Wl,--entry=DllEntry -o '" +
                          library.string() + "' '" + sourceFile.string() + "'";
    for (const std::string& option : linkerOptions) {
        command += " '" + option + "'";
    }
    if (std::system(command.c_str()) != 0) {
        throw std::runtime_error("the small DLL does not compile");
    }
    return library;
}

std::vector<uint8_t> ReadBytes(const std::filesystem::path& file)
{
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

void WriteBytes(const std::filesystem::path& file, const std::vector<uint8_t>& bytes)
{
    std::ofstream stream(file, std::ios::binary | std::ios::trunc);
    stream.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

}  // namespace machine::test
