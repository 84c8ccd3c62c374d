#include "exports/support/disk_bytes.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "machine/table_format.h"

namespace {

constexpr uint64_t kEntryBytes = sizeof(machine::GptEntryRecord);
constexpr uint64_t kArrayBytes = 128 * kEntryBytes;
constexpr uint64_t kPieceBytes = 64 * 1024;

}  // namespace

DiskBytes::DiskBytes(machine::Disk& disk) : disk_(disk)
{
    for (uint64_t offset = 0; offset < disk.Size(); offset += kPieceBytes) {
        std::vector<uint8_t> piece = disk.ReadBytes(offset, std::min(kPieceBytes, disk.Size() - offset));
        if (piece != std::vector<uint8_t>(piece.size())) {
            pieces_.emplace(offset, std::move(piece));
        }
    }
}

std::vector<uint8_t> DiskBytes::Before(uint64_t offset, uint64_t length) const
{
    std::vector<uint8_t> bytes(length);
    for (uint64_t done = 0; done < length;) {
        const uint64_t at = offset + done;
        const uint64_t within = at % kPieceBytes;
        const uint64_t count = std::min(length - done, kPieceBytes - within);
        if (const auto piece = pieces_.find(at - within); piece != pieces_.end()) {
            std::copy_n(piece->second.begin() + static_cast<ptrdiff_t>(within), count,
                        bytes.begin() + static_cast<ptrdiff_t>(done));
        }
        done += count;
    }
    return bytes;
}

void DiskBytes::ExpectUnchangedBut(const std::vector<Place>& places) const
{
    for (uint64_t offset = 0; offset < disk_.Size(); offset += kPieceBytes) {
        const uint64_t length = std::min(kPieceBytes, disk_.Size() - offset);
        const std::vector<uint8_t> before = Before(offset, length);
        std::vector<uint8_t> now = disk_.ReadBytes(offset, length);
        for (const Place& place : places) {
            const uint64_t start = std::max(place.start, offset);
            const uint64_t end = std::min(place.start + place.length, offset + length);
            for (uint64_t at = start; at < end; ++at) {
                now[at - offset] = before[at - offset];
            }
        }
        if (now != before) {
            const auto first = std::mismatch(now.begin(), now.end(), before.begin()).first;
            ADD_FAILURE() << "byte " << offset + static_cast<uint64_t>(first - now.begin()) << " has changed";
            return;
        }
    }
}

bool DiskBytes::HasChanged(const Place& place) const
{
    return disk_.ReadBytes(place.start, place.length) != Before(place.start, place.length);
}

TableSectors::TableSectors(const DiskKind& kind, uint64_t diskSize)
{
    const uint64_t sector = kind.sectorSize;
    if (kind.table == TableKind::Mbr) {
        primaryHeader = {0, sector};
        return;
    }
    primaryHeader = {sector, sector};
    primaryArray = {2 * sector, kArrayBytes};
    backupHeader = {diskSize - sector, sector};
    backupArray = {diskSize - sector - kArrayBytes, kArrayBytes};
}

std::vector<Place> BytesOfEntry(const DiskKind& kind, uint64_t diskSize, uint32_t slot)
{
    if (kind.table == TableKind::Mbr) {
        return {{offsetof(machine::MbrRecord, entries) + slot * sizeof(machine::MbrEntryRecord),
                 sizeof(machine::MbrEntryRecord)}};
    }
    const TableSectors sectors(kind, diskSize);
    std::vector<Place> places;
    for (const uint64_t array : {sectors.primaryArray.start, sectors.backupArray.start}) {
        places.push_back({array + slot * kEntryBytes, kEntryBytes});
    }
    for (const uint64_t header : {sectors.primaryHeader.start, sectors.backupHeader.start}) {
        places.push_back({header + offsetof(machine::GptHeaderRecord, headerCrc32), sizeof(uint32_t)});
        places.push_back({header + offsetof(machine::GptHeaderRecord, entriesCrc32), sizeof(uint32_t)});
    }
    return places;
}
