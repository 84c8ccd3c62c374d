#include "kit.h"

#include <filesystem>

#include <windows.h>

#include "text.h"

namespace kkctl {

namespace {

WideString Wide(const std::string& path)
{
    const std::optional<WideString> wide = FromUtf8(path);
    if (!wide || wide->empty()) {
        throw PathError("'" + path + "' is not a path");
    }
    return *wide;
}

/// The library lies beside the program; the search path of the system is never asked.
std::filesystem::path DllBesideProgram()
{
    constexpr DWORD kMaxPathUnits = 32768;
    WideString program(kMaxPathUnits, L'\0');
    program.resize(GetModuleFileNameW(nullptr, program.data(), kMaxPathUnits));
    return std::filesystem::path(program).parent_path() / L"KestrelkitCore.dll";
}

WideString FullPath(const WideString& path)
{
    const DWORD units = GetFullPathNameW(path.c_str(), 0, nullptr, nullptr);
    WideString full(units, L'\0');
    full.resize(GetFullPathNameW(path.c_str(), units, full.data(), nullptr));
    return full;
}

class WindowsKit : public Kit {
public:
    explicit WindowsKit(const std::filesystem::path& dll)
    {
        const HMODULE module = LoadLibraryW(dll.c_str());
        const std::string name = ToUtf8(dll.native());
        if (module == nullptr) {
            throw KitError("cannot load " + name + " (error " + std::to_string(GetLastError()) + ")");
        }
        calls_ = FindCalls(
            name, [module](const char* function) { return reinterpret_cast<void*>(GetProcAddress(module, function)); });
    }

    bool IsSimulated() const override { return false; }

    WideString ToLibraryPath(const std::string& path) const override
    {
        const WideString full = FullPath(Wide(path));
        if (full.empty() || full.starts_with(L"\\\\")) {
            throw PathError("'" + path + "' does not lead to a local drive; network paths are not supported");
        }
        return full;
    }

    uint64_t ImageBytesWritten(const std::string& path) const override
    {
        WIN32_FILE_ATTRIBUTE_DATA data = {};
        if (!GetFileAttributesExW(Wide(path).c_str(), GetFileExInfoStandard, &data)) {
            return 0;
        }
        return (static_cast<uint64_t>(data.nFileSizeHigh) << 32) | data.nFileSizeLow;
    }
};

}  // namespace

std::unique_ptr<Kit> OpenKit(const KitOptions& options)
{
    return std::make_unique<WindowsKit>(options.dll.empty() ? DllBesideProgram()
                                                            : std::filesystem::path(FullPath(Wide(options.dll))));
}

}  // namespace kkctl
