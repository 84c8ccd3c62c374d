#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

// What a PE32+ file says about itself. Nothing in the file is believed: every function throws std::runtime_error with
// a text that names the fault, and none reads outside the bytes it was given.

namespace machine {

inline constexpr uint32_t kPeSectionExecute = 0x20000000;
inline constexpr uint32_t kPeSectionRead = 0x40000000;
inline constexpr uint32_t kPeSectionWrite = 0x80000000;

/// One section, as its header describes it. Addresses are relative to the image's start.
struct PeSection {
    std::string name;
    uint32_t address = 0;
    uint32_t memoryBytes = 0;
    uint32_t fileOffset = 0;
    uint32_t fileBytes = 0;
    uint32_t characteristics = 0;
};

struct PeImport {
    std::string library;
    std::string name;
    uint32_t slotAddress = 0;  // where the loader stores the function's address
};

struct PeExport {
    std::string name;
    uint32_t address = 0;
};

struct PeDirectory {
    uint32_t address = 0;
    uint32_t bytes = 0;
};

/// The headers of a 64-bit DLL that can be mapped anywhere.
struct PeHeaders {
    uint64_t preferredBase = 0;
    uint32_t imageBytes = 0;
    uint32_t headerBytes = 0;
    uint32_t entryPoint = 0;  // 0 when there is none
    uint16_t characteristics = 0;
    uint16_t dllCharacteristics = 0;
    PeDirectory exports;
    PeDirectory imports;
    PeDirectory relocations;
    std::vector<PeSection> sections;
};

/// Reads and checks the headers of the file whose bytes are `file`.
PeHeaders ReadPeHeaders(std::span<const uint8_t> file);

/// Lays out the file as it lies in memory: headers and sections at their addresses, zeros between.
/// `image` has `headers.imageBytes` zero bytes.
void CopyPeSections(const PeHeaders& headers, std::span<const uint8_t> file, std::span<uint8_t> image);

/// Adds `delta` to every 64-bit address that the relocation table names.
void RelocatePeImage(const PeHeaders& headers, std::span<uint8_t> image, uint64_t delta);

std::vector<PeImport> ReadPeImports(const PeHeaders& headers, std::span<const uint8_t> image);
std::vector<PeExport> ReadPeExports(const PeHeaders& headers, std::span<const uint8_t> image);

}  // namespace machine
