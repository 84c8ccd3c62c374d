#include "machine/pe_image.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <type_traits>

namespace machine {
namespace {

constexpr uint16_t kMachineAmd64 = 0x8664;
constexpr uint16_t kRelocationsStripped = 0x0001;
constexpr uint16_t kExecutableImage = 0x0002;
constexpr uint16_t kDynamicLibrary = 0x2000;
constexpr uint16_t kMagicPe32Plus = 0x20B;
constexpr uint32_t kPageBytes = 4096;
constexpr uint32_t kImageBytesLimit = 256u << 20;
constexpr uint32_t kSectionLimit = 96;  // the system's own limit
constexpr uint32_t kFixedOptionalBytes = 112;
constexpr uint32_t kSectionHeaderBytes = 40;
constexpr uint32_t kListLimit = 65536;  // entries of one import or export list; real ones are far shorter

enum DirectoryIndex : uint32_t { kExports = 0, kImports = 1, kRelocations = 5, kTls = 9, kDelayImports = 13 };

[[noreturn]] void Refuse(const std::string& reason)
{
    throw std::runtime_error("not a loadable DLL: " + reason);
}

void Require(bool holds, const char* reason)
{
    if (!holds) {
        Refuse(reason);
    }
}

/// Bytes that are read by offset and never outside.
class CheckedBytes {
public:
    CheckedBytes(std::span<const uint8_t> bytes, const char* what) : bytes_(bytes), what_(what) {}

    template <typename T>
    T At(uint64_t offset) const
    {
        static_assert(std::is_trivially_copyable_v<T>);
        T value;
        std::memcpy(&value, Range(offset, sizeof(T)).data(), sizeof(T));
        return value;
    }

    std::span<const uint8_t> Range(uint64_t offset, uint64_t size) const
    {
        if (offset > bytes_.size() || size > bytes_.size() - offset) {
            Refuse(std::string(what_) + " ends before offset " + std::to_string(offset) + " + " + std::to_string(size));
        }
        return bytes_.subspan(offset, size);
    }

    std::string Text(uint64_t offset) const
    {
        Require(offset < bytes_.size(), "a name lies outside the image");
        const auto rest = bytes_.subspan(offset);
        const auto end = std::find(rest.begin(), rest.end(), uint8_t{0});
        Require(end != rest.end(), "a name has no end");
        return {rest.begin(), end};
    }

private:
    std::span<const uint8_t> bytes_;
    const char* what_;
};

bool IsPowerOfTwo(uint32_t value)
{
    return value != 0 && (value & (value - 1)) == 0;
}

uint64_t RoundUp(uint64_t value, uint64_t unit)
{
    return (value + unit - 1) / unit * unit;
}

PeDirectory ReadDirectory(const CheckedBytes& file, uint64_t optional, uint32_t index, uint32_t imageBytes)
{
    if (index >= file.At<uint32_t>(optional + 108)) {
        return {};
    }
    const uint64_t at = optional + kFixedOptionalBytes + 8ull * index;
    const PeDirectory directory = {file.At<uint32_t>(at), file.At<uint32_t>(at + 4)};
    if (directory.address == 0) {
        Require(directory.bytes == 0, "a data directory has a size and no address");
        return {};
    }
    const bool inside = directory.address <= imageBytes && directory.bytes <= imageBytes - directory.address;
    Require(inside, "a data directory lies outside the image");
    return directory;
}

void ReadOptionalHeader(const CheckedBytes& file, uint64_t optional, uint32_t optionalBytes, PeHeaders& headers)
{
    Require(optionalBytes >= kFixedOptionalBytes, "the optional header is too short");
    Require(file.At<uint16_t>(optional) == kMagicPe32Plus, "the optional header is not PE32+");
    headers.entryPoint = file.At<uint32_t>(optional + 16);
    headers.preferredBase = file.At<uint64_t>(optional + 24);
    Require(headers.preferredBase % 65536 == 0, "the preferred base is not a multiple of 64 KiB");
    const auto sectionAlignment = file.At<uint32_t>(optional + 32);
    const auto fileAlignment = file.At<uint32_t>(optional + 36);
    Require(sectionAlignment == kPageBytes, "sections are not aligned to pages");
    Require(IsPowerOfTwo(fileAlignment) && fileAlignment >= 512 && fileAlignment <= kPageBytes,
            "the file alignment is none of 512 to 4096");
    headers.imageBytes = file.At<uint32_t>(optional + 56);
    headers.headerBytes = file.At<uint32_t>(optional + 60);
    headers.dllCharacteristics = file.At<uint16_t>(optional + 70);
    Require(headers.imageBytes != 0 && headers.imageBytes % kPageBytes == 0 && headers.imageBytes <= kImageBytesLimit,
            "the image size is zero, uneven or too large");
    Require(headers.headerBytes <= headers.imageBytes, "the headers are larger than the image");
    (void)file.Range(0, headers.headerBytes);

    const auto directoryCount = file.At<uint32_t>(optional + 108);
    Require(directoryCount <= 16, "there are more than 16 data directories");
    Require(kFixedOptionalBytes + 8 * directoryCount <= optionalBytes, "the data directories do not fit their header");
    headers.exports = ReadDirectory(file, optional, kExports, headers.imageBytes);
    headers.imports = ReadDirectory(file, optional, kImports, headers.imageBytes);
    headers.relocations = ReadDirectory(file, optional, kRelocations, headers.imageBytes);
    Require(ReadDirectory(file, optional, kTls, headers.imageBytes).address == 0, "it has thread-local storage");
    Require(ReadDirectory(file, optional, kDelayImports, headers.imageBytes).address == 0, "it has delayed imports");
}

PeSection ReadSection(const CheckedBytes& file, uint64_t at)
{
    PeSection section;
    const auto name = file.Range(at, 8);
    section.name.assign(name.begin(), std::find(name.begin(), name.end(), uint8_t{0}));
    section.memoryBytes = file.At<uint32_t>(at + 8);
    section.address = file.At<uint32_t>(at + 12);
    section.fileBytes = file.At<uint32_t>(at + 16);
    section.fileOffset = file.At<uint32_t>(at + 20);
    section.characteristics = file.At<uint32_t>(at + 36);
    return section;
}

void ReadSections(const CheckedBytes& file, uint64_t table, uint32_t count, PeHeaders& headers)
{
    uint64_t nextAddress = RoundUp(headers.headerBytes, kPageBytes);
    for (uint32_t index = 0; index < count; ++index) {
        const PeSection section = ReadSection(file, table + uint64_t{index} * kSectionHeaderBytes);
        // The system maps a file only when its sections follow one another without gaps.
        Require(section.address == nextAddress, "a section does not follow the one before it");
        Require(section.memoryBytes != 0, "a section is empty");
        nextAddress = RoundUp(uint64_t{section.address} + section.memoryBytes, kPageBytes);
        Require(nextAddress <= headers.imageBytes, "a section lies outside the image");
        (void)file.Range(section.fileOffset, section.fileBytes);
        const uint32_t writeAndExecute = kPeSectionWrite | kPeSectionExecute;
        Require((section.characteristics & writeAndExecute) != writeAndExecute,
                "a section is both writable and executable");
        headers.sections.push_back(section);
    }
    Require(nextAddress == headers.imageBytes, "the sections do not fill the image");
}

bool LiesInCode(const PeHeaders& headers, uint32_t address)
{
    return std::any_of(headers.sections.begin(), headers.sections.end(), [address](const PeSection& section) {
        return (section.characteristics & kPeSectionExecute) != 0 && address >= section.address &&
               address - section.address < section.memoryBytes;
    });
}

/// Applies one page's block of relocations; answers its length.
uint32_t RelocateBlock(const CheckedBytes& table, uint64_t at, std::span<uint8_t> image, uint64_t delta)
{
    const auto page = table.At<uint32_t>(at);
    const auto blockBytes = table.At<uint32_t>(at + 4);
    Require(blockBytes >= 8 && blockBytes % 2 == 0, "a relocation block has a wrong size");
    (void)table.Range(at, blockBytes);
    for (uint32_t entry = 8; entry < blockBytes; entry += 2) {
        const auto word = table.At<uint16_t>(at + entry);
        const uint32_t kind = word >> 12;
        if (kind == 0) {
            continue;  // padding
        }
        Require(kind == 10, "a relocation is not of 64 bits");
        const uint64_t target = uint64_t{page} + (word & 0xFFF);
        Require(target <= image.size() && image.size() - target >= 8, "a relocation lies outside the image");
        uint64_t value = 0;
        std::memcpy(&value, &image[target], sizeof(value));
        value += delta;
        std::memcpy(&image[target], &value, sizeof(value));
    }
    return blockBytes;
}

void ReadLibraryImports(const CheckedBytes& image, uint64_t descriptor, std::vector<PeImport>& imports)
{
    const auto names = image.At<uint32_t>(descriptor);
    const auto slots = image.At<uint32_t>(descriptor + 16);
    const std::string library = image.Text(image.At<uint32_t>(descriptor + 12));
    Require(slots != 0, "an imported library has no address table");
    const uint64_t table = names != 0 ? names : slots;
    for (uint64_t index = 0;; ++index) {
        Require(imports.size() < kListLimit, "it has too many imports");
        const auto entry = image.At<uint64_t>(table + index * 8);
        if (entry == 0) {
            return;
        }
        Require(entry >> 63 == 0, "an import goes by number");
        Require(entry >> 31 == 0, "an import's name lies outside the image");
        const uint64_t slot = slots + index * 8;
        (void)image.Range(slot, 8);
        imports.push_back({library, image.Text(entry + 2), static_cast<uint32_t>(slot)});
    }
}

}  // namespace

PeHeaders ReadPeHeaders(std::span<const uint8_t> fileBytes)
{
    const CheckedBytes file(fileBytes, "the file");
    Require(file.At<uint16_t>(0) == 0x5A4D, "it does not begin with MZ");
    const uint64_t signature = file.At<uint32_t>(0x3C);
    Require(file.At<uint32_t>(signature) == 0x00004550, "it has no PE signature");
    const uint64_t coff = signature + 4;
    Require(file.At<uint16_t>(coff) == kMachineAmd64, "it is not for 64-bit x86 processors");
    const uint32_t sectionCount = file.At<uint16_t>(coff + 2);
    Require(sectionCount >= 1 && sectionCount <= kSectionLimit, "it has no sections or too many");
    const uint32_t optionalBytes = file.At<uint16_t>(coff + 16);
    const uint64_t optional = coff + 20;
    const uint64_t sectionTable = optional + optionalBytes;

    PeHeaders headers;
    headers.characteristics = file.At<uint16_t>(coff + 18);
    Require((headers.characteristics & kExecutableImage) != 0, "it was not linked completely");
    Require((headers.characteristics & kDynamicLibrary) != 0, "it is a program, not a library");
    Require((headers.characteristics & kRelocationsStripped) == 0, "it cannot be moved");
    ReadOptionalHeader(file, optional, optionalBytes, headers);
    Require(sectionTable + uint64_t{sectionCount} * kSectionHeaderBytes <= headers.headerBytes,
            "the section table does not fit the headers");
    ReadSections(file, sectionTable, sectionCount, headers);
    Require(headers.entryPoint == 0 || LiesInCode(headers, headers.entryPoint), "the entry point is not in code");
    return headers;
}

void CopyPeSections(const PeHeaders& headers, std::span<const uint8_t> file, std::span<uint8_t> image)
{
    std::memcpy(image.data(), file.data(), headers.headerBytes);
    for (const PeSection& section : headers.sections) {
        // What the file holds beyond the section's size in memory is padding.
        const uint32_t bytes = std::min(section.fileBytes, section.memoryBytes);
        if (bytes != 0) {
            std::memcpy(&image[section.address], &file[section.fileOffset], bytes);
        }
    }
}

void RelocatePeImage(const PeHeaders& headers, std::span<uint8_t> image, uint64_t delta)
{
    // A copy, so that a table that names itself cannot change while it is read.
    const auto tableStart = image.begin() + headers.relocations.address;
    const std::vector<uint8_t> copy(tableStart, tableStart + headers.relocations.bytes);
    const CheckedBytes table(copy, "the relocation table");
    uint64_t at = 0;
    while (at < copy.size()) {
        at += RelocateBlock(table, at, image, delta);
    }
}

std::vector<PeImport> ReadPeImports(const PeHeaders& headers, std::span<const uint8_t> imageBytes)
{
    std::vector<PeImport> imports;
    if (headers.imports.address == 0) {
        return imports;
    }
    const CheckedBytes image(imageBytes, "the image");
    for (uint64_t descriptor = headers.imports.address;; descriptor += 20) {
        if (image.At<uint32_t>(descriptor + 12) == 0) {
            return imports;
        }
        ReadLibraryImports(image, descriptor, imports);
    }
}

std::vector<PeExport> ReadPeExports(const PeHeaders& headers, std::span<const uint8_t> imageBytes)
{
    std::vector<PeExport> exports;
    if (headers.exports.address == 0) {
        return exports;
    }
    const CheckedBytes image(imageBytes, "the image");
    const uint64_t directory = headers.exports.address;
    const auto functionCount = image.At<uint32_t>(directory + 20);
    const auto nameCount = image.At<uint32_t>(directory + 24);
    const uint64_t functions = image.At<uint32_t>(directory + 28);
    const uint64_t names = image.At<uint32_t>(directory + 32);
    const uint64_t ordinals = image.At<uint32_t>(directory + 36);
    Require(functionCount <= kListLimit && nameCount <= kListLimit, "it has too many exports");
    for (uint32_t index = 0; index < nameCount; ++index) {
        const auto ordinal = image.At<uint16_t>(ordinals + 2ull * index);
        Require(ordinal < functionCount, "an export's number is out of range");
        const auto address = image.At<uint32_t>(functions + 4ull * ordinal);
        const bool forwarded = address >= directory && address - directory < headers.exports.bytes;
        Require(!forwarded, "an export is forwarded to another library");
        Require(address < imageBytes.size(), "an export lies outside the image");
        exports.push_back({image.Text(image.At<uint32_t>(names + 4ull * index)), address});
    }
    return exports;
}

}  // namespace machine
