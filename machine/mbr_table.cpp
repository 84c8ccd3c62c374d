#include <algorithm>
#include <limits>
#include <stdexcept>

#include "machine/boot_record.h"
#include "machine/table_builder.h"

namespace machine {

namespace {

constexpr uint64_t kMiB = 1024 * 1024;

uint32_t InSectors(uint64_t bytes, uint32_t sectorSize)
{
    const uint64_t sectors = bytes / sectorSize;
    if (bytes % sectorSize != 0 || sectors > std::numeric_limits<uint32_t>::max()) {
        throw std::invalid_argument("partition bounds must be whole sectors that an MBR can express");
    }
    return static_cast<uint32_t>(sectors);
}

/// Addresses by cylinder and head are long dead; this is what tools write for "look at the sector numbers".
MbrEntryRecord EncodeEntry(const MbrPartition& partition, uint64_t base, uint32_t sectorSize)
{
    return {static_cast<uint8_t>(partition.active ? 0x80 : 0x00),
            {0xFE, 0xFF, 0xFF},
            partition.type,
            {0xFE, 0xFF, 0xFF},
            InSectors(partition.start - base, sectorSize),
            InSectors(partition.length, sectorSize)};
}

void WriteNewRecord(Storage& storage, uint32_t sectorSize, uint64_t offset, MbrRecord record)
{
    record.mark = kBootMark;
    if (!WriteBootRecord(storage, {offset, std::vector<uint8_t>(sectorSize), record})) {
        throw std::runtime_error("writing a boot record failed");
    }
}

/// Where the boot record of each logical drive lies: up to 1 MiB before it, behind what comes before.
std::vector<uint64_t> PlaceBootRecords(const MbrTable& table, uint32_t sectorSize)
{
    uint64_t occupiedEnd = sectorSize;
    for (const MbrPartition& partition : table.partitions) {
        if (partition.start < table.logicals.front().start) {
            occupiedEnd = std::max(occupiedEnd, partition.start + partition.length);
        }
    }
    std::vector<uint64_t> places;
    for (const MbrPartition& logical : table.logicals) {
        if (logical.start < occupiedEnd + sectorSize) {
            throw std::invalid_argument("no room for the boot record of a logical drive");
        }
        const uint64_t preferred = logical.start > kMiB ? logical.start - kMiB : 0;
        places.push_back(std::max(preferred, occupiedEnd));
        occupiedEnd = logical.start + logical.length;
    }
    return places;
}

void WriteChain(Storage& storage, uint32_t sectorSize, const MbrTable& table, const std::vector<uint64_t>& places)
{
    for (size_t i = 0; i < table.logicals.size(); ++i) {
        MbrRecord record = {};
        record.entries[0] = EncodeEntry(table.logicals[i], places[i], sectorSize);
        if (i + 1 < table.logicals.size()) {
            const MbrPartition& next = table.logicals[i + 1];
            const MbrPartition link = {places[i + 1], next.start + next.length - places[i + 1], 0x05, false};
            record.entries[1] = EncodeEntry(link, places.front(), sectorSize);
        }
        WriteNewRecord(storage, sectorSize, places[i], record);
    }
}

}  // namespace

void WriteMbrTable(Storage& storage, uint32_t sectorSize, const MbrTable& table)
{
    std::vector<MbrPartition> primaries = table.partitions;
    if (!table.logicals.empty()) {
        const std::vector<uint64_t> places = PlaceBootRecords(table, sectorSize);
        const uint64_t end = table.logicals.back().start + table.logicals.back().length;
        primaries.push_back({places.front(), end - places.front(), table.containerType, false});
        WriteChain(storage, sectorSize, table, places);
    }
    if (primaries.size() > 4) {
        throw std::invalid_argument("an MBR has four entries");
    }
    MbrRecord record = {};
    record.signature = table.signature;
    for (size_t i = 0; i < primaries.size(); ++i) {
        record.entries[i] = EncodeEntry(primaries[i], 0, sectorSize);
    }
    WriteNewRecord(storage, sectorSize, 0, record);
}

}  // namespace machine
