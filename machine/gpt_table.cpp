#include <algorithm>
#include <stdexcept>

#include "machine/boot_record.h"
#include "machine/gpt_copy.h"
#include "machine/table_builder.h"

namespace machine {

namespace {

constexpr uint32_t kRevision = 0x00010000;

/// Where the parts of a GPT lie on a disk.
struct GptShape {
    uint64_t sectorCount;
    uint64_t entrySectors;

    uint64_t FirstUsable() const { return 2 + entrySectors; }
    uint64_t LastUsable() const { return sectorCount - 2 - entrySectors; }
    uint64_t BackupEntries() const { return sectorCount - 1 - entrySectors; }
};

uint64_t InSectors(uint64_t bytes, uint32_t sectorSize)
{
    if (bytes % sectorSize != 0) {
        throw std::invalid_argument("partition bounds must be whole sectors");
    }
    return bytes / sectorSize;
}

void WriteProtectiveMbr(Storage& storage, uint32_t sectorSize, uint64_t sectorCount)
{
    MbrRecord mbr = {};
    const uint64_t covered = std::min<uint64_t>(sectorCount - 1, 0xFFFFFFFF);
    mbr.entries[0] = {0, {0x00, 0x02, 0x00}, kProtectiveType, {0xFF, 0xFF, 0xFF}, 1, static_cast<uint32_t>(covered)};
    mbr.mark = kBootMark;
    WriteBootRecord(storage, {0, std::vector<uint8_t>(sectorSize), mbr});
}

std::vector<uint8_t> EncodeEntries(const GptTable& table, const GptShape& shape, uint32_t sectorSize)
{
    std::vector<uint8_t> bytes(shape.entrySectors * sectorSize);
    uint32_t nextSlot = 0;
    for (const GptPartition& partition : table.partitions) {
        const uint32_t slot = partition.slot.value_or(nextSlot);
        nextSlot = slot + 1;
        GptEntryRecord entry = {};
        entry.type = partition.type;
        entry.id = partition.id.value_or(MadeUpPartitionId(slot));
        entry.firstLba = InSectors(partition.start, sectorSize);
        entry.lastLba = entry.firstLba + InSectors(partition.length, sectorSize) - 1;
        entry.attributes = partition.attributes;
        if (slot >= table.entryCount || partition.length == 0 || partition.name.size() > std::size(entry.name) ||
            entry.firstLba < shape.FirstUsable() || entry.lastLba > shape.LastUsable()) {
            throw std::invalid_argument("a partition does not fit the table or the disk");
        }
        for (size_t i = 0; i < partition.name.size(); ++i) {
            entry.name[i] = partition.name[i];
        }
        PutRecord(bytes, static_cast<size_t>(slot) * table.entryBytes, entry);
    }
    return bytes;
}

void WriteCopy(Storage& storage, uint32_t sectorSize, const GptHeaderRecord& header,
               const std::vector<uint8_t>& entries)
{
    if (!WriteGptCopy(storage, sectorSize, {std::vector<uint8_t>(sectorSize), header, entries})) {
        throw std::runtime_error("writing the partition table failed");
    }
}

}  // namespace

kk::Guid MadeUpPartitionId(uint32_t slot)
{
    return {0x7A000000 + slot + 1, 0x51C4, 0x4D2E, {0xA3, 0x17, 0x5B, 0x90, 0x0C, 0x6D, 0xE8, 0x42}};
}

void WriteGptTable(Storage& storage, uint32_t sectorSize, const GptTable& table)
{
    const uint64_t entriesBytes = static_cast<uint64_t>(table.entryCount) * table.entryBytes;
    const GptShape shape = {storage.Size() / sectorSize, (entriesBytes + sectorSize - 1) / sectorSize};
    if (table.entryBytes < sizeof(GptEntryRecord) || shape.sectorCount < 2 * shape.entrySectors + 4) {
        throw std::invalid_argument("the disk is too small for this table");
    }
    const std::vector<uint8_t> entries = EncodeEntries(table, shape, sectorSize);

    GptHeaderRecord header = {};
    std::copy(std::begin(kGptSignature), std::end(kGptSignature), header.signature);
    header.revision = kRevision;
    header.headerBytes = sizeof(GptHeaderRecord);
    header.ownLba = 1;
    header.otherLba = shape.sectorCount - 1;
    header.firstUsableLba = shape.FirstUsable();
    header.lastUsableLba = shape.LastUsable();
    header.diskId = table.diskId;
    header.entriesLba = 2;
    header.entryCount = table.entryCount;
    header.entryBytes = table.entryBytes;
    WriteProtectiveMbr(storage, sectorSize, shape.sectorCount);
    WriteCopy(storage, sectorSize, header, entries);

    header.ownLba = shape.sectorCount - 1;
    header.otherLba = 1;
    header.entriesLba = shape.BackupEntries();
    WriteCopy(storage, sectorSize, header, entries);
}

}  // namespace machine
