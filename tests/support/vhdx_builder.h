#pragma once

#include <array>
#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <vector>

#include "core/guid.h"
#include "machine/storage.h"

namespace vhdx {

inline constexpr kk::Guid kBlockTableRegion = {
    0x2DC27766, 0xF623, 0x4200, {0x9D, 0x64, 0x11, 0x5E, 0x9B, 0xFD, 0x4A, 0x08}};
inline constexpr kk::Guid kMetadataRegion = {
    0x8B7CA206, 0x4790, 0x4B9A, {0xB8, 0xFE, 0x57, 0x5F, 0x05, 0x0F, 0x88, 0x6E}};
inline constexpr kk::Guid kFileParameters = {
    0xCAA16737, 0xFA36, 0x4D43, {0xB3, 0xB6, 0x33, 0xF0, 0xAA, 0x44, 0xE7, 0x6B}};
inline constexpr kk::Guid kVirtualDiskSize = {
    0x2FA54224, 0xCD1B, 0x4876, {0xB2, 0x11, 0x5D, 0xBE, 0xD8, 0x3B, 0xF4, 0xB8}};
inline constexpr kk::Guid kLogicalSectorSize = {
    0x8141BF1D, 0xA96F, 0x4709, {0xBA, 0x47, 0xF2, 0x33, 0xA8, 0xFA, 0xAB, 0x5F}};
inline constexpr kk::Guid kPhysicalSectorSize = {
    0xCDA348C7, 0x445D, 0x4471, {0x9C, 0xC9, 0xE9, 0x88, 0x52, 0x51, 0xC5, 0x56}};
inline constexpr kk::Guid kVirtualDiskId = {
    0xBECA12AB, 0xB2E6, 0x4523, {0x93, 0xEF, 0xC3, 0x09, 0xE0, 0x00, 0xC7, 0x46}};

inline constexpr uint64_t kFullyPresent = 6;

// Where VhdxBuilder puts things in the file.
inline constexpr uint64_t kHeaderOffsets[] = {0x10000, 0x20000};
inline constexpr uint64_t kRegionTableOffsets[] = {0x30000, 0x40000};
inline constexpr uint32_t kRegionTableBytes = 0x10000;
inline constexpr uint64_t kLogOffset = 0x100000;
inline constexpr uint64_t kMetadataOffset = 0x200000;
inline constexpr uint32_t kMetadataBytes = 0x100000;
inline constexpr uint64_t kBlockTableOffset = 0x300000;

/// An entry of a region table.
struct Region {
    kk::Guid id;
    uint64_t offset;
    uint32_t length;
};

/// A metadata item. The table claims its true place and length unless told others; both count from the table's start.
struct Item {
    kk::Guid id;
    std::vector<uint8_t> value;
    std::optional<uint32_t> claimedOffset = std::nullopt;
    std::optional<uint32_t> claimedLength = std::nullopt;
};

/// A number in `width` bytes, the least significant one first.
std::vector<uint8_t> LittleEndian(uint64_t value, size_t width);

uint32_t Crc32c(const std::vector<uint8_t>& bytes);

}  // namespace vhdx

/// Makes VHDX files of a well-formed dynamic disk, and ones that no tool makes. The files are sparse: what is not
/// written takes no room on the host, whatever the size of the disk.
///
///     VhdxBuilder(8 * kTiB).SectorSize(4096).Data(5 * kTiB, bytes).State(0, 2).Save(path);
class VhdxBuilder {
public:
    explicit VhdxBuilder(uint64_t virtualSize) : virtualSize_(virtualSize) {}

    VhdxBuilder& SectorSize(uint32_t bytes);
    /// Comes before all that lies in blocks.
    VhdxBuilder& BlockSize(uint32_t bytes);

    /// Puts bytes at an offset of the disk. The blocks that they touch become fully present, and lie in the file in the
    /// order in which they were first touched.
    VhdxBuilder& Data(uint64_t offset, const std::vector<uint8_t>& bytes);
    /// Puts all that another disk holds onto this one, from its beginning.
    VhdxBuilder& Data(machine::Storage& disk);
    VhdxBuilder& EveryBlockPresent();

    /// Gives the entry of a block another state. The block keeps its place in the file.
    VhdxBuilder& State(uint64_t block, uint64_t state);
    /// Gives a block this very entry.
    VhdxBuilder& Entry(uint64_t block, uint64_t entry);
    /// Gives all sector-bitmap blocks this very entry.
    VhdxBuilder& BitmapEntries(uint64_t entry);

    /// Replaces the items of the same kind, or adds one more to them, or removes them.
    VhdxBuilder& Item(const vhdx::Item& item);
    VhdxBuilder& OneMoreItem(const vhdx::Item& item);
    VhdxBuilder& WithoutItem(const kk::Guid& id);

    /// Replaces the entries of one copy (0 or 1) of the region table, or of both.
    VhdxBuilder& Regions(size_t copy, const std::vector<vhdx::Region>& regions);
    VhdxBuilder& Regions(const std::vector<vhdx::Region>& regions);
    /// Metadata first, then the block table.
    std::vector<vhdx::Region> UsualRegions() const;

    /// Puts bytes at an offset of the file, over everything else. Checksums stay as they are.
    VhdxBuilder& FileBytes(uint64_t offset, const std::vector<uint8_t>& bytes);

    /// Where a block lies in the file once all is said. It must have been touched.
    uint64_t PlaceOf(uint64_t block) const;
    /// Where the entry of a block lies in the file.
    uint64_t PlaceOfEntry(uint64_t block) const;

    void Save(const std::filesystem::path& path) const;

private:
    uint64_t BlockCount() const { return (virtualSize_ + blockSize_ - 1) / blockSize_; }
    uint64_t BlocksPerChunk() const;
    uint64_t BlockTableBytes() const;
    uint64_t FirstPlace() const { return vhdx::kBlockTableOffset + BlockTableBytes(); }
    uint64_t BlockStride() const;
    void Touch(uint64_t block);
    std::vector<vhdx::Item> AllItems() const;

    class File;
    void SaveHeaders(File& file) const;
    void SaveRegionTables(File& file) const;
    void SaveMetadata(File& file) const;
    void SaveBlockTable(File& file) const;
    void SaveData(File& file) const;

    uint64_t virtualSize_;
    uint32_t sectorSize_ = 512;
    uint32_t blockSize_ = 2 << 20;
    std::map<uint64_t, uint64_t> touched_;  // a block and how many were touched before it
    std::vector<std::pair<uint64_t, std::vector<uint8_t>>> data_;
    std::map<uint64_t, uint64_t> states_;
    std::map<uint64_t, uint64_t> entries_;
    uint64_t bitmapEntry_ = 0;
    std::vector<vhdx::Item> ownItems_;
    std::vector<kk::Guid> replacedItems_;
    std::array<std::optional<std::vector<vhdx::Region>>, 2> ownRegions_;
    std::vector<std::pair<uint64_t, std::vector<uint8_t>>> fileBytes_;
};
