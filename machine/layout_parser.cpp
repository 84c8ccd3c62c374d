#include "machine/layout_parser.h"

#include <algorithm>
#include <optional>

#include "machine/boot_record.h"
#include "machine/file_system.h"

namespace machine {

namespace {

constexpr uint8_t kRecognisedTypes[] = {0x01, 0x04, 0x06, 0x07, 0x0B, 0x0C, 0x0E};

/// Collects the entries of boot records and numbers the real partitions among them.
class MbrWalk {
public:
    MbrWalk(Storage& storage, uint32_t sectorSize) : storage_(storage), sectorSize_(sectorSize) {}

    std::vector<kk::PartitionInformationEx> Walk(const MbrRecord& sector0)
    {
        for (const MbrEntryRecord& entry : sector0.entries) {
            Append(entry, 0);
        }
        for (const MbrEntryRecord& entry : sector0.entries) {
            if (IsExtendedContainer(entry.type)) {
                WalkChain(Bytes(entry.firstSector));
                break;
            }
        }
        return std::move(entries_);
    }

private:
    uint64_t Bytes(uint32_t sectors) const { return static_cast<uint64_t>(sectors) * sectorSize_; }

    void WalkChain(uint64_t container)
    {
        uint64_t place = container;
        for (uint32_t links = 0; links < kChainLimit; ++links) {
            const std::optional<BootRecord> boot = ReadBootRecord(storage_, sectorSize_, place);
            if (!boot) {
                return;
            }
            uint64_t next = 0;
            for (const MbrEntryRecord& entry : boot->record.entries) {
                // Links count from the container's start, drives from the record that names them.
                Append(entry, IsExtendedContainer(entry.type) ? container : place);
                if (IsExtendedContainer(entry.type) && next == 0) {
                    next = container + Bytes(entry.firstSector);
                }
            }
            if (next <= place) {
                return;
            }
            place = next;
        }
    }

    void Append(const MbrEntryRecord& record, uint64_t base)
    {
        kk::PartitionInformationEx entry = {};
        entry.style = kk::WirePartitionStyle::Mbr;
        if (record.type != 0) {
            entry.startingOffset = static_cast<int64_t>(base + Bytes(record.firstSector));
            entry.partitionLength = static_cast<int64_t>(Bytes(record.sectorCount));
            entry.mbr.partitionType = record.type;
            entry.mbr.bootIndicator = record.status == 0x80;
            entry.mbr.recognizedPartition = std::find(std::begin(kRecognisedTypes), std::end(kRecognisedTypes),
                                                      record.type) != std::end(kRecognisedTypes);
            entry.mbr.hiddenSectors = record.firstSector;
            entry.partitionNumber = IsExtendedContainer(record.type) ? 0 : nextNumber_++;
        }
        entries_.push_back(entry);
    }

    Storage& storage_;
    uint32_t sectorSize_;
    std::vector<kk::PartitionInformationEx> entries_;
    uint32_t nextNumber_ = 1;
};

uint8_t MbrTypeOf(FileSystem fileSystem)
{
    switch (fileSystem) {
    case FileSystem::Fat12:
        return 0x01;
    case FileSystem::Fat16:
        return 0x06;
    case FileSystem::Fat32:
        return 0x0C;
    default:
        return 0x07;
    }
}

/// A medium with a file system and no table: one partition that is the whole disk.
kk::PartitionInformationEx WholeDisk(uint64_t diskBytes, FileSystem fileSystem)
{
    kk::PartitionInformationEx entry = {};
    entry.style = kk::WirePartitionStyle::Mbr;
    entry.partitionLength = static_cast<int64_t>(diskBytes);
    entry.partitionNumber = 1;
    entry.mbr.partitionType = MbrTypeOf(fileSystem);
    entry.mbr.recognizedPartition = 1;
    return entry;
}

}  // namespace

bool IsExtendedContainer(uint8_t mbrType)
{
    return mbrType == 0x05 || mbrType == 0x0F;
}

Layout ParseLayout(Storage& storage, uint32_t sectorSize)
{
    Layout layout;
    layout.header.partitionStyle = kk::WirePartitionStyle::Raw;
    const std::optional<BootRecord> boot = ReadBootRecord(storage, sectorSize, 0);
    if (!boot) {
        return layout;
    }
    const MbrRecord& sector0 = boot->record;
    const bool announcesGpt = std::any_of(std::begin(sector0.entries), std::end(sector0.entries),
                                          [](const MbrEntryRecord& entry) { return entry.type == kProtectiveType; });
    if (announcesGpt && ParseGpt(storage, sectorSize, layout)) {
        return layout;
    }
    layout = {};
    layout.header.partitionStyle = kk::WirePartitionStyle::Mbr;
    layout.header.mbr.signature = sector0.signature;
    const FileSystem fileSystem = RecogniseBootSector(std::span(boot->sector).first(512));
    if (fileSystem != FileSystem::None) {
        layout.partitions.push_back(WholeDisk(storage.Size(), fileSystem));
    } else {
        layout.partitions = MbrWalk(storage, sectorSize).Walk(sector0);
    }
    layout.header.partitionCount = static_cast<uint32_t>(layout.partitions.size());
    return layout;
}

}  // namespace machine
