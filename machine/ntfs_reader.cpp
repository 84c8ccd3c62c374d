#include "machine/ntfs_reader.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>

#include "machine/file_system.h"

namespace machine {

namespace {

constexpr uint64_t kBitmapRecord = 6;
constexpr uint32_t kDataAttribute = 0x80;
constexpr uint32_t kEndOfAttributes = 0xFFFFFFFF;
constexpr uint32_t kFixupSector = 512;
constexpr uint32_t kLargestRecord = 64 * 1024;
constexpr uint32_t kLargestCluster = 2 * 1024 * 1024;

/// An unsigned field of a record, or 0 when it lies outside.
template <typename T>
T Field(std::span<const uint8_t> bytes, uint64_t offset)
{
    T value = 0;
    if (offset <= bytes.size() && sizeof(T) <= bytes.size() - offset) {
        std::memcpy(&value, bytes.data() + offset, sizeof(T));
    }
    return value;
}

/// A size that is a count when positive and a negated power of two when negative; 0 when it makes no sense.
uint64_t SizeOfCode(uint8_t code, uint64_t unit)
{
    const auto number = static_cast<int8_t>(code);
    if (number >= 0) {
        return static_cast<uint64_t>(number) * unit;
    }
    return number >= -31 ? 1ull << -number : 0;
}

/// The little-endian number of 1 to 8 bytes at `offset`, with or without a sign.
uint64_t ShortNumber(std::span<const uint8_t> bytes, size_t offset, size_t width, bool isSigned)
{
    uint64_t value = isSigned && (bytes[offset + width - 1] & 0x80) != 0 ? ~0ull : 0;
    for (size_t i = width; i > 0; --i) {
        value = (value << 8) | bytes[offset + i - 1];
    }
    return value;
}

}  // namespace

std::optional<NtfsGeometry> NtfsReader::ReadGeometry(VolumeView& view)
{
    std::array<uint8_t, 512> sector = {};
    if (view.Length() < sector.size() || !view.Read(0, sector) || RecogniseBootSector(sector) != FileSystem::Ntfs) {
        return std::nullopt;
    }
    NtfsGeometry geometry;
    geometry.bytesPerSector = Field<uint16_t>(sector, 0x0B);
    // Large clusters are coded as a negated power of two as well.
    const uint64_t clusterSectors = sector[0x0D] <= 0x80 ? sector[0x0D] : SizeOfCode(sector[0x0D], 1);
    const uint64_t clusterBytes = clusterSectors * geometry.bytesPerSector;
    geometry.totalSectors = Field<uint64_t>(sector, 0x28);
    if (geometry.bytesPerSector < 256 || !std::has_single_bit(geometry.bytesPerSector) ||
        !std::has_single_bit(clusterBytes) || clusterBytes > kLargestCluster ||
        geometry.totalSectors > view.Length() / geometry.bytesPerSector) {
        return std::nullopt;
    }
    geometry.bytesPerCluster = static_cast<uint32_t>(clusterBytes);
    geometry.totalClusters = geometry.totalSectors / clusterSectors;
    geometry.mftStartLcn = Field<uint64_t>(sector, 0x30);
    geometry.mft2StartLcn = Field<uint64_t>(sector, 0x38);
    const uint64_t recordBytes = SizeOfCode(sector[0x40], clusterBytes);
    geometry.serialNumber = Field<uint64_t>(sector, 0x48);
    if (recordBytes < kFixupSector || recordBytes > kLargestRecord || geometry.mftStartLcn >= geometry.totalClusters) {
        return std::nullopt;
    }
    geometry.bytesPerFileRecord = static_cast<uint32_t>(recordBytes);
    return geometry;
}

bool NtfsReader::Open()
{
    const std::optional<NtfsGeometry> geometry = ReadGeometry(view_);
    if (!geometry) {
        return false;
    }
    geometry_ = *geometry;
    std::vector<uint8_t> record;
    return ReadFileRecord(kBitmapRecord, record) && FindData(record, bitmap_) &&
           bitmap_.dataBytes >= (geometry_.totalClusters + 7) / 8;
}

/// The first records of the file table lie at its start, which is never in pieces that small.
bool NtfsReader::ReadFileRecord(uint64_t number, std::vector<uint8_t>& record)
{
    record.resize(geometry_.bytesPerFileRecord);
    const uint64_t offset = geometry_.mftStartLcn * geometry_.bytesPerCluster + number * geometry_.bytesPerFileRecord;
    return offset <= view_.Length() && record.size() <= view_.Length() - offset && view_.Read(offset, record) &&
           std::memcmp(record.data(), "FILE", 4) == 0 && ApplyFixups(record);
}

/// Puts back the last two bytes of each sector, which were swapped for a sequence number when it was written.
bool NtfsReader::ApplyFixups(std::vector<uint8_t>& record)
{
    const size_t arrayOffset = Field<uint16_t>(record, 4);
    const size_t sectors = record.size() / kFixupSector;
    if (Field<uint16_t>(record, 6) != sectors + 1 || arrayOffset + 2 * (sectors + 1) > record.size()) {
        return false;
    }
    for (size_t i = 0; i < sectors; ++i) {
        uint8_t* const tail = record.data() + (i + 1) * kFixupSector - 2;
        if (std::memcmp(tail, record.data() + arrayOffset, 2) != 0) {
            return false;
        }
        std::memcpy(tail, record.data() + arrayOffset + 2 * (i + 1), 2);
    }
    return true;
}

/// A file so fragmented that its data is described elsewhere has no data attribute here that begins at 0, or only a
/// part of it; both end in failure.
bool NtfsReader::FindData(const std::vector<uint8_t>& record, DataAttribute& data) const
{
    const std::span<const uint8_t> bytes(record);
    for (uint64_t at = Field<uint16_t>(bytes, 0x14); at + 8 <= bytes.size();) {
        const auto type = Field<uint32_t>(bytes, at);
        const auto length = Field<uint32_t>(bytes, at + 4);
        if (type == kEndOfAttributes || length < 0x18 || length > bytes.size() - at) {
            return false;
        }
        const uint8_t nameLength = bytes[at + 9];
        if (type == kDataAttribute && nameLength == 0) {
            return ReadDataAttribute(bytes.subspan(at, length), data);
        }
        at += length;
    }
    return false;
}

bool NtfsReader::ReadDataAttribute(std::span<const uint8_t> attribute, DataAttribute& data) const
{
    data.isResident = attribute[8] == 0;
    if (data.isResident) {
        const uint64_t length = Field<uint32_t>(attribute, 0x10);
        const uint64_t offset = Field<uint16_t>(attribute, 0x14);
        if (offset > attribute.size() || length > attribute.size() - offset) {
            return false;
        }
        const auto content = attribute.subspan(offset, length);
        data.resident.assign(content.begin(), content.end());
        data.dataBytes = length;
        data.validBytes = length;
        return true;
    }
    const uint64_t runsOffset = Field<uint16_t>(attribute, 0x20);
    data.dataBytes = Field<uint64_t>(attribute, 0x30);
    data.validBytes = Field<uint64_t>(attribute, 0x38);
    const bool beginsAtZero = Field<uint64_t>(attribute, 0x10) == 0;
    if (!beginsAtZero || runsOffset >= attribute.size() || !DecodeRuns(attribute.subspan(runsOffset), data.runs)) {
        return false;
    }
    const uint64_t clusters = data.runs.empty() ? 0 : data.runs.back().vcn + data.runs.back().clusters;
    return (data.dataBytes + geometry_.bytesPerCluster - 1) / geometry_.bytesPerCluster <= clusters;
}

bool NtfsReader::DecodeRuns(std::span<const uint8_t> encoded, std::vector<Run>& runs) const
{
    uint64_t vcn = 0;
    uint64_t lcn = 0;
    for (size_t at = 0; at < encoded.size() && encoded[at] != 0;) {
        const size_t lengthWidth = encoded[at] & 0x0F;
        const size_t offsetWidth = encoded[at] >> 4;
        if (lengthWidth == 0 || lengthWidth > 8 || offsetWidth > 8 ||
            lengthWidth + offsetWidth >= encoded.size() - at) {
            return false;
        }
        const uint64_t clusters = ShortNumber(encoded, at + 1, lengthWidth, false);
        const bool sparse = offsetWidth == 0;
        lcn += sparse ? 0 : ShortNumber(encoded, at + 1 + lengthWidth, offsetWidth, true);
        if (clusters == 0 || clusters > geometry_.totalClusters ||
            (!sparse && (lcn > geometry_.totalClusters || clusters > geometry_.totalClusters - lcn))) {
            return false;
        }
        runs.push_back({vcn, lcn, clusters, sparse});
        vcn += clusters;
        at += 1 + lengthWidth + offsetWidth;
    }
    return true;
}

bool NtfsReader::ReadBitmap(uint64_t offset, std::span<uint8_t> into)
{
    if (offset > bitmap_.dataBytes || into.size() > bitmap_.dataBytes - offset) {
        return false;
    }
    if (bitmap_.isResident) {
        std::copy_n(bitmap_.resident.begin() + static_cast<ptrdiff_t>(offset), into.size(), into.begin());
        return true;
    }
    std::fill(into.begin(), into.end(), uint8_t{0});
    const uint64_t end = offset + into.size();
    for (const Run& run : bitmap_.runs) {
        const uint64_t runStart = run.vcn * geometry_.bytesPerCluster;
        const uint64_t from = std::max(offset, runStart);
        const uint64_t to = std::min(end, runStart + run.clusters * geometry_.bytesPerCluster);
        if (from >= to || run.sparse) {
            continue;
        }
        const uint64_t source = run.lcn * geometry_.bytesPerCluster + (from - runStart);
        if (!view_.Read(source, into.subspan(from - offset, to - from))) {
            return false;
        }
    }
    return true;
}

std::optional<uint64_t> NtfsReader::CountFreeClusters()
{
    constexpr uint64_t kPiece = 1024 * 1024;
    std::vector<uint8_t> bytes;
    uint64_t used = 0;
    const uint64_t whole = geometry_.totalClusters / 8;
    for (uint64_t at = 0; at < whole; at += bytes.size()) {
        bytes.resize(std::min(kPiece, whole - at));
        if (!ReadBitmap(at, bytes)) {
            return std::nullopt;
        }
        for (const uint8_t byte : bytes) {
            used += static_cast<uint64_t>(std::popcount(byte));
        }
    }
    if (geometry_.totalClusters % 8 != 0) {
        std::array<uint8_t, 1> last = {};
        if (!ReadBitmap(whole, last)) {
            return std::nullopt;
        }
        const unsigned present = (1u << (geometry_.totalClusters % 8)) - 1;
        used += static_cast<uint64_t>(std::popcount(last[0] & present));
    }
    return geometry_.totalClusters - used;
}

std::optional<uint64_t> NtfsReader::FindUsedEnd()
{
    constexpr uint64_t kPiece = 1024 * 1024;
    std::vector<uint8_t> bytes;
    for (uint64_t end = (geometry_.totalClusters + 7) / 8; end != 0; end -= bytes.size()) {
        bytes.resize(std::min(kPiece, end));
        if (!ReadBitmap(end - bytes.size(), bytes)) {
            return std::nullopt;
        }
        if (end * 8 > geometry_.totalClusters) {
            // The bits behind the last cluster are set as if something lay there.
            bytes.back() &= static_cast<uint8_t>((1u << (geometry_.totalClusters % 8)) - 1);
        }
        const auto last = std::find_if(bytes.rbegin(), bytes.rend(), [](uint8_t byte) { return byte != 0; });
        if (last != bytes.rend()) {
            const auto bytesBehind = static_cast<uint64_t>(last - bytes.rbegin());
            return (end - bytesBehind) * 8 - static_cast<uint64_t>(std::countl_zero(*last));
        }
    }
    return 0;
}

std::optional<kk::NtfsVolumeData> NtfsReader::ReadVolumeData()
{
    const std::optional<uint64_t> freeClusters = CountFreeClusters();
    std::vector<uint8_t> record;
    DataAttribute fileTable;
    if (!freeClusters || !ReadFileRecord(0, record) || !FindData(record, fileTable)) {
        return std::nullopt;
    }
    kk::NtfsVolumeData data = {};
    data.volumeSerialNumber = static_cast<int64_t>(geometry_.serialNumber);
    data.numberSectors = static_cast<int64_t>(geometry_.totalSectors);
    data.totalClusters = static_cast<int64_t>(geometry_.totalClusters);
    data.freeClusters = static_cast<int64_t>(*freeClusters);
    data.bytesPerSector = geometry_.bytesPerSector;
    data.bytesPerCluster = geometry_.bytesPerCluster;
    data.bytesPerFileRecordSegment = geometry_.bytesPerFileRecord;
    data.clustersPerFileRecordSegment = geometry_.bytesPerFileRecord / geometry_.bytesPerCluster;
    data.mftValidDataLength = static_cast<int64_t>(fileTable.validBytes);
    data.mftStartLcn = static_cast<int64_t>(geometry_.mftStartLcn);
    data.mft2StartLcn = static_cast<int64_t>(geometry_.mft2StartLcn);
    data.mftZoneStart = data.mftStartLcn;
    data.mftZoneEnd = std::min(data.totalClusters, data.mftStartLcn + data.totalClusters / 8);
    return data;
}

}  // namespace machine
