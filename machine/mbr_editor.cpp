#include <limits>
#include <optional>

#include "machine/table_editor.h"
#include "machine/table_format.h"

namespace machine {

namespace {

constexpr uint32_t kChainLimit = 128;

/// A boot record with the sector that it lies in.
struct BootRecord {
    uint64_t sector = 0;
    std::vector<uint8_t> bytes = {};
    MbrRecord record = {};
};

std::optional<BootRecord> ReadBootRecord(Storage& storage, uint32_t sectorSize, uint64_t sector)
{
    BootRecord boot = {sector, std::vector<uint8_t>(sectorSize)};
    if (!storage.Read(sector * sectorSize, boot.bytes)) {
        return std::nullopt;
    }
    boot.record = TakeRecord<MbrRecord>(boot.bytes);
    return boot.record.mark == kBootMark ? std::optional(boot) : std::nullopt;
}

bool WriteBootRecord(Storage& storage, uint32_t sectorSize, BootRecord& boot)
{
    PutRecord(boot.bytes, 0, boot.record);
    return storage.Write(boot.sector * sectorSize, boot.bytes);
}

/// The drive in this record that begins at `start`, or null.
MbrEntryRecord* FindDrive(BootRecord& boot, uint64_t start)
{
    for (MbrEntryRecord& entry : boot.record.entries) {
        if (entry.type != 0 && !IsExtendedContainer(entry.type) && boot.sector + entry.firstSector == start) {
            return &entry;
        }
    }
    return nullptr;
}

/// The container in sector 0, or the link to the next record of the chain, or null.
MbrEntryRecord* FindLink(BootRecord& boot)
{
    for (MbrEntryRecord& entry : boot.record.entries) {
        if (IsExtendedContainer(entry.type)) {
            return &entry;
        }
    }
    return nullptr;
}

}  // namespace

/// Drives count from the record that names them, links from the container's start. The link to a drive's record spans
/// record and drive; the container in sector 0 keeps its size.
Status ResizeMbrEntry(Storage& storage, uint32_t sectorSize, uint64_t start, uint64_t length)
{
    if (length > std::numeric_limits<uint32_t>::max()) {
        return kInvalidParameter;
    }
    uint64_t container = 0;
    std::optional<BootRecord> previous;
    std::optional<BootRecord> current = ReadBootRecord(storage, sectorSize, 0);
    for (uint32_t links = 0; current && links < kChainLimit; ++links) {
        if (MbrEntryRecord* const drive = FindDrive(*current, start)) {
            drive->sectorCount = static_cast<uint32_t>(length);
            bool written = WriteBootRecord(storage, sectorSize, *current);
            if (written && previous && previous->sector != 0) {
                FindLink(*previous)->sectorCount = static_cast<uint32_t>(start + length - current->sector);
                written = WriteBootRecord(storage, sectorSize, *previous);
            }
            return written ? kSuccess : kIoDeviceError;
        }
        const MbrEntryRecord* const link = FindLink(*current);
        if (link == nullptr) {
            break;
        }
        const uint64_t next = container + link->firstSector;
        container = container == 0 ? next : container;
        previous = std::move(current);
        current = ReadBootRecord(storage, sectorSize, next);
    }
    return kInvalidParameter;
}

}  // namespace machine
