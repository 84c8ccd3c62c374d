#include <limits>
#include <optional>

#include "machine/boot_record.h"
#include "machine/table_editor.h"

namespace machine {

namespace {

/// The drive that begins at `start` in a record that lies at `sector`, or null.
MbrEntryRecord* FindDrive(BootRecord& boot, uint64_t sector, uint64_t start)
{
    for (MbrEntryRecord& entry : boot.record.entries) {
        if (entry.type != 0 && !IsExtendedContainer(entry.type) && sector + entry.firstSector == start) {
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
    uint64_t sector = 0;  // of the current record
    std::optional<BootRecord> previous;
    std::optional<BootRecord> current = ReadBootRecord(storage, sectorSize, 0);
    for (uint32_t links = 0; current && links < kChainLimit; ++links) {
        if (MbrEntryRecord* const drive = FindDrive(*current, sector, start)) {
            drive->sectorCount = static_cast<uint32_t>(length);
            bool written = WriteBootRecord(storage, *current);
            if (written && previous && previous->offset != 0) {
                FindLink(*previous)->sectorCount = static_cast<uint32_t>(start + length - sector);
                written = WriteBootRecord(storage, *previous);
            }
            return written ? kSuccess : kIoDeviceError;
        }
        const MbrEntryRecord* const link = FindLink(*current);
        if (link == nullptr) {
            break;
        }
        sector = container + link->firstSector;
        container = container == 0 ? sector : container;
        previous = std::move(current);
        current = ReadBootRecord(storage, sectorSize, sector * sectorSize);
    }
    return kInvalidParameter;
}

}  // namespace machine
