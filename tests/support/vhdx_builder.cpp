#include "support/vhdx_builder.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <system_error>

namespace {

constexpr uint64_t kMiB = 1 << 20;
constexpr uint32_t kHeaderBytes = 4096;
constexpr uint32_t kFirstItemOffset = 64 << 10;
constexpr uint32_t kVirtualDiskItem = 2;
constexpr uint32_t kRequired = 4;
constexpr kk::Guid kSampleId = {0x0F1E2D3C, 0x4B5A, 0x4978, {0x86, 0x95, 0xA4, 0xB3, 0xC2, 0xD1, 0xE0, 0xFF}};

uint64_t RoundUp(uint64_t value, uint64_t unit)
{
    return (value + unit - 1) / unit * unit;
}

void Put(std::vector<uint8_t>& into, size_t offset, const std::vector<uint8_t>& bytes)
{
    if (into.size() < offset + bytes.size()) {
        throw std::length_error("a part of a VHDX file does not fit its place");
    }
    std::ranges::copy(bytes, into.begin() + static_cast<ptrdiff_t>(offset));
}

void Put(std::vector<uint8_t>& into, size_t offset, uint64_t value, size_t width)
{
    Put(into, offset, vhdx::LittleEndian(value, width));
}

void Put(std::vector<uint8_t>& into, size_t offset, const char* text)
{
    Put(into, offset, std::vector<uint8_t>(text, text + std::strlen(text)));
}

std::vector<uint8_t> BytesOf(const kk::Guid& id)
{
    std::vector<uint8_t> bytes(sizeof(id));
    std::memcpy(bytes.data(), &id, sizeof(id));
    return bytes;
}

constexpr std::array<uint32_t, 256> Crc32cTable()
{
    std::array<uint32_t, 256> table = {};
    for (uint32_t i = 0; i < table.size(); ++i) {
        table[i] = i;
        for (int bit = 0; bit < 8; ++bit) {
            table[i] = table[i] >> 1 ^ ((table[i] & 1) != 0 ? 0x82F63B78u : 0u);
        }
    }
    return table;
}

/// The checksum of a header or region table lies behind its four letters and is taken with itself zero.
void Seal(std::vector<uint8_t>& structure)
{
    Put(structure, 4, vhdx::Crc32c(structure), 4);
}

}  // namespace

std::vector<uint8_t> vhdx::LittleEndian(uint64_t value, size_t width)
{
    std::vector<uint8_t> bytes(width);
    for (size_t i = 0; i < std::min(width, sizeof(value)); ++i) {
        bytes[i] = static_cast<uint8_t>(value >> 8 * i);
    }
    return bytes;
}

uint32_t vhdx::Crc32c(const std::vector<uint8_t>& bytes)
{
    static constexpr std::array<uint32_t, 256> table = Crc32cTable();
    uint32_t crc = ~uint32_t{0};
    for (const uint8_t byte : bytes) {
        crc = crc >> 8 ^ table[(crc ^ byte) & 0xFF];
    }
    return ~crc;
}

/// The file while it is being written.
class VhdxBuilder::File {
public:
    explicit File(const std::filesystem::path& path)
        : descriptor_(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644))
    {
        Check(descriptor_ >= 0);
    }
    File(const File&) = delete;
    File& operator=(const File&) = delete;
    ~File() { close(descriptor_); }

    void Resize(uint64_t size) { Check(ftruncate(descriptor_, static_cast<off_t>(size)) == 0); }

    void Write(uint64_t offset, const std::vector<uint8_t>& bytes)
    {
        const ssize_t written = pwrite(descriptor_, bytes.data(), bytes.size(), static_cast<off_t>(offset));
        Check(written == static_cast<ssize_t>(bytes.size()));
    }

private:
    static void Check(bool isFine)
    {
        if (!isFine) {
            throw std::system_error(errno, std::generic_category(), "cannot write a VHDX file");
        }
    }

    int descriptor_;
};

VhdxBuilder& VhdxBuilder::SectorSize(uint32_t bytes)
{
    sectorSize_ = bytes;
    return *this;
}

VhdxBuilder& VhdxBuilder::BlockSize(uint32_t bytes)
{
    if (!touched_.empty()) {
        throw std::logic_error("the block size of a VHDX file comes before what lies in blocks");
    }
    blockSize_ = bytes;
    return *this;
}

VhdxBuilder& VhdxBuilder::Data(uint64_t offset, const std::vector<uint8_t>& bytes)
{
    const uint64_t end = offset + bytes.size();
    for (uint64_t block = offset / blockSize_; block * blockSize_ < end; ++block) {
        Touch(block);
    }
    data_.emplace_back(offset, bytes);
    return *this;
}

VhdxBuilder& VhdxBuilder::Data(machine::Storage& disk)
{
    for (const machine::Stretch& stretch : disk.DataIn(0, disk.Size())) {
        std::vector<uint8_t> bytes(stretch.length);
        if (!disk.Read(stretch.offset, bytes)) {
            throw std::runtime_error("cannot read a disk to put into a VHDX file");
        }
        Data(stretch.offset, bytes);
    }
    return *this;
}

VhdxBuilder& VhdxBuilder::EveryBlockPresent()
{
    for (uint64_t block = 0; block < BlockCount(); ++block) {
        Touch(block);
    }
    return *this;
}

VhdxBuilder& VhdxBuilder::State(uint64_t block, uint64_t state)
{
    states_[block] = state;
    return *this;
}

VhdxBuilder& VhdxBuilder::Entry(uint64_t block, uint64_t entry)
{
    entries_[block] = entry;
    return *this;
}

VhdxBuilder& VhdxBuilder::BitmapEntries(uint64_t entry)
{
    bitmapEntry_ = entry;
    return *this;
}

VhdxBuilder& VhdxBuilder::Item(const vhdx::Item& item)
{
    return WithoutItem(item.id).OneMoreItem(item);
}

VhdxBuilder& VhdxBuilder::OneMoreItem(const vhdx::Item& item)
{
    ownItems_.push_back(item);
    return *this;
}

VhdxBuilder& VhdxBuilder::WithoutItem(const kk::Guid& id)
{
    replacedItems_.push_back(id);
    std::erase_if(ownItems_, [&](const vhdx::Item& item) { return item.id == id; });
    return *this;
}

VhdxBuilder& VhdxBuilder::Regions(size_t copy, const std::vector<vhdx::Region>& regions)
{
    ownRegions_.at(copy) = regions;
    return *this;
}

VhdxBuilder& VhdxBuilder::Regions(const std::vector<vhdx::Region>& regions)
{
    return Regions(0, regions).Regions(1, regions);
}

std::vector<vhdx::Region> VhdxBuilder::UsualRegions() const
{
    return {{vhdx::kMetadataRegion, vhdx::kMetadataOffset, vhdx::kMetadataBytes},
            {vhdx::kBlockTableRegion, vhdx::kBlockTableOffset, static_cast<uint32_t>(BlockTableBytes())}};
}

VhdxBuilder& VhdxBuilder::FileBytes(uint64_t offset, const std::vector<uint8_t>& bytes)
{
    fileBytes_.emplace_back(offset, bytes);
    return *this;
}

uint64_t VhdxBuilder::PlaceOf(uint64_t block) const
{
    return FirstPlace() + touched_.at(block) * BlockStride();
}

uint64_t VhdxBuilder::PlaceOfEntry(uint64_t block) const
{
    return vhdx::kBlockTableOffset + 8 * (block + block / BlocksPerChunk());
}

uint64_t VhdxBuilder::BlocksPerChunk() const
{
    return std::max<uint64_t>((uint64_t{sectorSize_} << 23) / blockSize_, 1);
}

uint64_t VhdxBuilder::BlockTableBytes() const
{
    const uint64_t entries = BlockCount() + BlockCount() / BlocksPerChunk();
    return std::max(RoundUp(8 * entries, kMiB), kMiB);
}

uint64_t VhdxBuilder::BlockStride() const
{
    return RoundUp(blockSize_, kMiB);
}

void VhdxBuilder::Touch(uint64_t block)
{
    touched_.emplace(block, touched_.size());
}

std::vector<vhdx::Item> VhdxBuilder::AllItems() const
{
    std::vector<vhdx::Item> items = {
        {vhdx::kFileParameters, vhdx::LittleEndian(blockSize_, 8)},
        {vhdx::kVirtualDiskSize, vhdx::LittleEndian(virtualSize_, 8)},
        {vhdx::kVirtualDiskId, BytesOf(kSampleId)},
        {vhdx::kLogicalSectorSize, vhdx::LittleEndian(sectorSize_, 4)},
        {vhdx::kPhysicalSectorSize, vhdx::LittleEndian(4096, 4)},
    };
    std::erase_if(items, [&](const vhdx::Item& item) { return std::ranges::count(replacedItems_, item.id) > 0; });
    items.insert(items.end(), ownItems_.begin(), ownItems_.end());
    return items;
}

void VhdxBuilder::Save(const std::filesystem::path& path) const
{
    File file(path);
    file.Resize(FirstPlace() + touched_.size() * BlockStride());
    SaveHeaders(file);
    SaveRegionTables(file);
    SaveMetadata(file);
    SaveBlockTable(file);
    SaveData(file);
    for (const auto& [offset, bytes] : fileBytes_) {
        file.Write(offset, bytes);
    }
}

void VhdxBuilder::SaveHeaders(File& file) const
{
    std::vector<uint8_t> identifier(8);
    Put(identifier, 0, "vhdxfile");
    file.Write(0, identifier);
    for (size_t copy = 0; copy < std::size(vhdx::kHeaderOffsets); ++copy) {
        std::vector<uint8_t> header(kHeaderBytes);
        Put(header, 0, "head");
        Put(header, 8, copy + 1, 8);          // the higher number is the newer header
        Put(header, 16, BytesOf(kSampleId));  // changes with every write to the file
        Put(header, 32, BytesOf(kSampleId));  // changes with every write to the disk
        Put(header, 66, 1, 2);                // version of the format
        Put(header, 68, kMiB, 4);             // length of the log, which is empty: it has no identifier
        Put(header, 72, vhdx::kLogOffset, 8);
        Seal(header);
        file.Write(vhdx::kHeaderOffsets[copy], header);
    }
}

void VhdxBuilder::SaveRegionTables(File& file) const
{
    for (size_t copy = 0; copy < std::size(vhdx::kRegionTableOffsets); ++copy) {
        const std::vector<vhdx::Region> regions = ownRegions_[copy].value_or(UsualRegions());
        std::vector<uint8_t> table(vhdx::kRegionTableBytes);
        Put(table, 0, "regi");
        Put(table, 8, regions.size(), 4);
        for (size_t i = 0; i < regions.size(); ++i) {
            const size_t at = 16 + 32 * i;
            Put(table, at, BytesOf(regions[i].id));
            Put(table, at + 16, regions[i].offset, 8);
            Put(table, at + 24, regions[i].length, 4);
            Put(table, at + 28, 1, 4);
        }
        Seal(table);
        file.Write(vhdx::kRegionTableOffsets[copy], table);
    }
}

void VhdxBuilder::SaveMetadata(File& file) const
{
    const std::vector<vhdx::Item> items = AllItems();
    std::vector<uint8_t> region(vhdx::kMetadataBytes);
    Put(region, 0, "metadata");
    Put(region, 10, items.size(), 2);
    uint32_t offset = kFirstItemOffset;
    for (size_t i = 0; i < items.size(); ++i) {
        const vhdx::Item& item = items[i];
        const size_t at = 32 + 32 * i;
        const uint32_t flags = item.id == vhdx::kFileParameters ? kRequired : kRequired | kVirtualDiskItem;
        Put(region, at, BytesOf(item.id));
        Put(region, at + 16, item.claimedOffset.value_or(offset), 4);
        Put(region, at + 20, item.claimedLength.value_or(static_cast<uint32_t>(item.value.size())), 4);
        Put(region, at + 24, flags, 4);
        Put(region, offset, item.value);
        offset += static_cast<uint32_t>(item.value.size());
    }
    region.resize(offset);
    file.Write(vhdx::kMetadataOffset, region);
}

void VhdxBuilder::SaveBlockTable(File& file) const
{
    const auto save = [&](uint64_t block, uint64_t entry) {
        file.Write(PlaceOfEntry(block), vhdx::LittleEndian(entry, 8));
    };
    const uint64_t chunk = BlocksPerChunk();
    for (uint64_t block = chunk; bitmapEntry_ != 0 && block <= BlockCount(); block += chunk) {
        file.Write(PlaceOfEntry(block) - 8, vhdx::LittleEndian(bitmapEntry_, 8));
    }
    for (const auto& [block, order] : touched_) {
        save(block, PlaceOf(block) | vhdx::kFullyPresent);
    }
    for (const auto& [block, state] : states_) {
        save(block, (touched_.contains(block) ? PlaceOf(block) : 0) | state);
    }
    for (const auto& [block, entry] : entries_) {
        save(block, entry);
    }
}

void VhdxBuilder::SaveData(File& file) const
{
    for (const auto& [start, bytes] : data_) {
        for (uint64_t done = 0; done < bytes.size();) {
            const uint64_t block = (start + done) / blockSize_;
            const uint64_t within = (start + done) % blockSize_;
            const uint64_t count = std::min<uint64_t>(bytes.size() - done, blockSize_ - within);
            const auto first = bytes.begin() + static_cast<ptrdiff_t>(done);
            file.Write(PlaceOf(block) + within, {first, first + static_cast<ptrdiff_t>(count)});
            done += count;
        }
    }
}
