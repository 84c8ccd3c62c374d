#include "machine/pe_loader.h"

#include <sys/mman.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <utility>

#include "kestrelkit/kestrelkit.h"
#include "machine/ntdll_exports.h"

namespace machine {
namespace {

constexpr uint32_t kProcessDetach = 0;
constexpr uint32_t kProcessAttach = 1;

using EntryPoint = int32_t(KK_CALL*)(void* module, uint32_t reason, void* reserved);

std::vector<uint8_t> ReadWholeFile(const std::filesystem::path& file)
{
    std::ifstream stream(file, std::ios::binary);
    if (!stream) {
        throw std::runtime_error("cannot open " + file.string());
    }
    std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(stream)), std::istreambuf_iterator<char>());
    if (stream.bad()) {
        throw std::runtime_error("cannot read " + file.string());
    }
    return bytes;
}

uint8_t* MapPages(size_t bytes)
{
    void* const address = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (address == MAP_FAILED) {
        throw std::runtime_error(std::string("cannot map the DLL: ") + std::strerror(errno));
    }
    return static_cast<uint8_t*>(address);
}

int ProtectionOf(const PeSection& section)
{
    int protection = PROT_NONE;
    protection |= (section.characteristics & kPeSectionRead) != 0 ? PROT_READ : 0;
    protection |= (section.characteristics & kPeSectionWrite) != 0 ? PROT_WRITE : 0;
    protection |= (section.characteristics & kPeSectionExecute) != 0 ? PROT_EXEC : 0;
    return protection;
}

void Protect(uint8_t* address, size_t bytes, int protection)
{
    if (bytes != 0 && mprotect(address, bytes, protection) != 0) {
        throw std::runtime_error(std::string("cannot protect the DLL's pages: ") + std::strerror(errno));
    }
}

}  // namespace

void* ResolveFromNtdll(std::string_view library, std::string_view name)
{
    return library == "ntdll.dll" ? FindNtdllExport(std::string(name).c_str()) : nullptr;
}

void LoadedDll::Unmap::operator()(uint8_t* address) const
{
    (void)munmap(address, bytes);
}

LoadedDll::LoadedDll(const std::filesystem::path& file, LoadOptions options)
{
    const std::vector<uint8_t> bytes = ReadWholeFile(file);
    headers_ = ReadPeHeaders(bytes);
    mapping_ = {MapPages(headers_.imageBytes), Unmap{headers_.imageBytes}};
    const std::span<uint8_t> image(mapping_.get(), headers_.imageBytes);
    CopyPeSections(headers_, bytes, image);
    RelocatePeImage(headers_, image, reinterpret_cast<uint64_t>(mapping_.get()) - headers_.preferredBase);
    imports_ = ReadPeImports(headers_, image);
    exports_ = ReadPeExports(headers_, image);
    BindImports(options.resolver);
    ProtectSections();
    if (options.callEntryPoint && headers_.entryPoint != 0) {
        if (!CallEntryPoint(kProcessAttach)) {
            throw std::runtime_error(file.string() + " refused to be loaded");
        }
        attached_ = true;
    }
}

LoadedDll::~LoadedDll()
{
    if (attached_) {
        (void)CallEntryPoint(kProcessDetach);
    }
}

std::vector<std::string> LoadedDll::ExportNames() const
{
    std::vector<std::string> names;
    names.reserve(exports_.size());
    for (const PeExport& item : exports_) {
        names.push_back(item.name);
    }
    return names;
}

void* LoadedDll::FindExport(std::string_view name) const
{
    for (const PeExport& item : exports_) {
        if (item.name == name) {
            return mapping_.get() + item.address;
        }
    }
    return nullptr;
}

void LoadedDll::BindImports(const ImportResolver& resolver)
{
    for (const PeImport& import : imports_) {
        void* const function = resolver(import.library, import.name);
        if (function == nullptr) {
            throw std::runtime_error("unknown import " + import.library + "!" + import.name);
        }
        std::memcpy(mapping_.get() + import.slotAddress, &function, sizeof(function));
    }
}

void LoadedDll::ProtectSections()
{
    Protect(mapping_.get(), headers_.sections.front().address, PROT_READ);
    for (size_t index = 0; index < headers_.sections.size(); ++index) {
        const PeSection& section = headers_.sections[index];
        const bool last = index + 1 == headers_.sections.size();
        const uint32_t end = last ? headers_.imageBytes : headers_.sections[index + 1].address;
        Protect(mapping_.get() + section.address, end - section.address, ProtectionOf(section));
    }
}

bool LoadedDll::CallEntryPoint(uint32_t reason)
{
    const auto entry = reinterpret_cast<EntryPoint>(mapping_.get() + headers_.entryPoint);
    return entry(mapping_.get(), reason, nullptr) != 0;
}

}  // namespace machine
