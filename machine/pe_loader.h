#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "machine/pe_image.h"

namespace machine {

/// Answers the address of a function that a DLL imports, or null when there is none of that name.
using ImportResolver = std::function<void*(std::string_view library, std::string_view name)>;

/// Finds the machine's own ntdll functions; every other library is unknown to it.
void* ResolveFromNtdll(std::string_view library, std::string_view name);

struct LoadOptions {
    ImportResolver resolver = ResolveFromNtdll;
    bool callEntryPoint = true;  // false maps and binds only, so that a damaged file never runs
};

/// A 64-bit Windows DLL, mapped into this process and bound to the simulated machine. Each object is a copy of its
/// own: data sections start as the file has them, so the library's state is fresh. Unloading runs the entry point
/// with "detach" and unmaps; no pointer into the DLL may be used afterwards.
class LoadedDll {
public:
    /// Throws std::runtime_error when the file cannot be read, is no DLL for this processor, is damaged, imports a
    /// name that `resolver` does not know, or its entry point answers false.
    explicit LoadedDll(const std::filesystem::path& file, LoadOptions options = {});
    ~LoadedDll();
    LoadedDll(const LoadedDll&) = delete;
    LoadedDll& operator=(const LoadedDll&) = delete;

    /// The exported function `name` as a pointer of type F, or null. The caller vouches for the type, whose calling
    /// convention must be Microsoft's.
    template <typename F>
    F Export(std::string_view name) const
    {
        static_assert(std::is_pointer_v<F>);
        return reinterpret_cast<F>(FindExport(name));
    }

    std::vector<std::string> ExportNames() const;
    const std::vector<PeImport>& Imports() const { return imports_; }
    const PeHeaders& Headers() const { return headers_; }

    /// The bytes in memory, in which a test may look up what the headers name.
    std::span<const uint8_t> Image() const { return {mapping_.get(), headers_.imageBytes}; }

private:
    struct Unmap {
        size_t bytes;
        void operator()(uint8_t* address) const;
    };

    void* FindExport(std::string_view name) const;
    void BindImports(const ImportResolver& resolver);
    void ProtectSections();
    bool CallEntryPoint(uint32_t reason);

    PeHeaders headers_;
    std::unique_ptr<uint8_t, Unmap> mapping_;
    std::vector<PeImport> imports_;
    std::vector<PeExport> exports_;
    bool attached_ = false;
};

}  // namespace machine
