#include "exports/support/table_on_disk.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "machine/crc32.h"

using machine::GptEntryRecord;
using machine::GptHeaderRecord;
using machine::TakeRecord;

namespace {

bool IsUsed(const GptEntryRecord& entry)
{
    return entry.type != kk::Guid{};
}

bool HeaderChecksumIsRight(std::vector<uint8_t> sector)
{
    const auto header = TakeRecord<GptHeaderRecord>(sector);
    if (header.headerBytes != sizeof(GptHeaderRecord)) {
        return false;
    }
    std::memset(sector.data() + offsetof(GptHeaderRecord, headerCrc32), 0, sizeof(header.headerCrc32));
    return machine::Crc32(std::span(sector).first(sizeof(GptHeaderRecord))) == header.headerCrc32;
}

/// Both copies have the same entries and name each other.
bool AreTwins(const GptOnDisk& one, const GptOnDisk& other)
{
    const auto bytes = [](const GptOnDisk& gpt) {
        return std::span(reinterpret_cast<const uint8_t*>(gpt.entries.data()),
                         gpt.entries.size() * sizeof(GptEntryRecord));
    };
    return one.header.otherLba == other.header.ownLba && other.header.otherLba == one.header.ownLba &&
           one.header.diskId == other.header.diskId && std::ranges::equal(bytes(one), bytes(other));
}

std::vector<std::optional<Place>> MbrSlots(machine::Disk& disk)
{
    std::vector<std::optional<Place>> slots;
    for (const machine::MbrEntryRecord& entry : ReadMbr(disk).entries) {
        const Place place = {uint64_t{entry.firstSector} * disk.SectorSize(),
                             uint64_t{entry.sectorCount} * disk.SectorSize()};
        slots.push_back(entry.type != 0 ? std::optional(place) : std::nullopt);
    }
    return slots;
}

}  // namespace

std::vector<std::optional<Place>> GptOnDisk::Slots(uint32_t sectorSize) const
{
    std::vector<std::optional<Place>> slots;
    for (const GptEntryRecord& entry : entries) {
        const Place place = {entry.firstLba * sectorSize, (entry.lastLba - entry.firstLba + 1) * sectorSize};
        slots.push_back(IsUsed(entry) ? std::optional(place) : std::nullopt);
    }
    return slots;
}

GptOnDisk ReadGpt(machine::Disk& disk, uint64_t headerLba)
{
    GptOnDisk gpt;
    const std::vector<uint8_t> sector = disk.ReadBytes(headerLba * disk.SectorSize(), disk.SectorSize());
    gpt.header = TakeRecord<GptHeaderRecord>(sector);
    if (std::memcmp(gpt.header.signature, machine::kGptSignature, sizeof(machine::kGptSignature)) != 0 ||
        gpt.header.entryBytes != sizeof(GptEntryRecord) || gpt.header.entryCount > 1024) {
        return gpt;
    }
    const std::vector<uint8_t> array = disk.ReadBytes(gpt.header.entriesLba * disk.SectorSize(),
                                                      uint64_t{gpt.header.entryCount} * sizeof(GptEntryRecord));
    for (size_t offset = 0; offset < array.size(); offset += sizeof(GptEntryRecord)) {
        gpt.entries.push_back(TakeRecord<GptEntryRecord>(array, offset));
    }
    gpt.sound = gpt.header.ownLba == headerLba && HeaderChecksumIsRight(sector) &&
                machine::Crc32(array) == gpt.header.entriesCrc32;
    return gpt;
}

machine::MbrRecord ReadMbr(machine::Disk& disk)
{
    return TakeRecord<machine::MbrRecord>(disk.ReadBytes(0, sizeof(machine::MbrRecord)));
}

std::vector<std::optional<Place>> ReadSlots(machine::Disk& disk, const DiskKind& kind)
{
    std::vector<std::optional<Place>> slots;
    if (kind.table == TableKind::Gpt) {
        const GptOnDisk primary = ReadGpt(disk, 1);
        const GptOnDisk backup = ReadGpt(disk, disk.Size() / disk.SectorSize() - 1);
        EXPECT_TRUE(primary.sound);
        EXPECT_TRUE(backup.sound);
        EXPECT_TRUE(AreTwins(primary, backup));
        slots = primary.Slots(kind.sectorSize);
    } else {
        EXPECT_EQ(ReadMbr(disk).mark, machine::kBootMark);
        slots = MbrSlots(disk);
    }
    while (!slots.empty() && !slots.back()) {
        slots.pop_back();
    }
    return slots;
}
