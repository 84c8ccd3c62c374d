#include <algorithm>
#include <cstring>

#include "machine/crc32.h"
#include "machine/layout_parser.h"
#include "machine/table_format.h"

namespace machine {

namespace {

constexpr uint64_t kEntriesLimit = 16 * 1024 * 1024;  // more than any table in use; a header may claim terabytes

struct GptCopy {
    GptHeaderRecord header = {};
    std::vector<uint8_t> entries = {};
};

bool HeaderIsIntact(const std::vector<uint8_t>& sector, const GptHeaderRecord& header, uint64_t lba)
{
    if (std::memcmp(header.signature, kGptSignature, sizeof(kGptSignature)) != 0 ||
        header.headerBytes < sizeof(GptHeaderRecord) || header.headerBytes > sector.size() || header.ownLba != lba) {
        return false;
    }
    std::vector<uint8_t> covered(sector.begin(), sector.begin() + header.headerBytes);
    std::fill_n(covered.begin() + offsetof(GptHeaderRecord, headerCrc32), sizeof(uint32_t), uint8_t{0});
    return Crc32(covered) == header.headerCrc32;
}

bool ReadCopy(Storage& storage, uint32_t sectorSize, uint64_t lba, GptCopy& copy)
{
    const uint64_t sectorCount = storage.Size() / sectorSize;
    std::vector<uint8_t> sector(sectorSize);
    if (lba >= sectorCount || !storage.Read(lba * sectorSize, sector)) {
        return false;
    }
    copy.header = TakeRecord<GptHeaderRecord>(sector);
    if (!HeaderIsIntact(sector, copy.header, lba)) {
        return false;
    }
    const uint64_t bytes = static_cast<uint64_t>(copy.header.entryCount) * copy.header.entryBytes;
    if (copy.header.entryBytes < sizeof(GptEntryRecord) || copy.header.entryBytes % 8 != 0 || bytes > kEntriesLimit ||
        copy.header.entriesLba >= sectorCount) {
        return false;
    }
    copy.entries.resize(bytes);
    return storage.Read(copy.header.entriesLba * sectorSize, copy.entries) &&
           Crc32(copy.entries) == copy.header.entriesCrc32;
}

kk::PartitionInformationEx EntryOf(const GptEntryRecord& record, uint32_t sectorSize)
{
    kk::PartitionInformationEx entry = {};
    entry.style = kk::WirePartitionStyle::Gpt;
    entry.startingOffset = static_cast<int64_t>(record.firstLba * sectorSize);
    entry.partitionLength = static_cast<int64_t>((record.lastLba - record.firstLba + 1) * sectorSize);
    entry.gpt.partitionType = record.type;
    entry.gpt.partitionId = record.id;
    entry.gpt.attributes = record.attributes;
    std::memcpy(entry.gpt.name, record.name, sizeof(record.name));
    return entry;
}

}  // namespace

bool ParseGpt(Storage& storage, uint32_t sectorSize, Layout& layout)
{
    GptCopy copy;
    const uint64_t lastLba = storage.Size() / sectorSize - 1;
    if (!ReadCopy(storage, sectorSize, 1, copy) && !ReadCopy(storage, sectorSize, lastLba, copy)) {
        return false;
    }
    layout.header.partitionStyle = kk::WirePartitionStyle::Gpt;
    layout.header.gpt.diskId = copy.header.diskId;
    layout.header.gpt.startingUsableOffset = static_cast<int64_t>(copy.header.firstUsableLba * sectorSize);
    layout.header.gpt.usableLength =
        static_cast<int64_t>((copy.header.lastUsableLba - copy.header.firstUsableLba + 1) * sectorSize);
    layout.header.gpt.maxPartitionCount = copy.header.entryCount;
    for (uint64_t at = 0; at < copy.entries.size(); at += copy.header.entryBytes) {
        const auto record = TakeRecord<GptEntryRecord>(copy.entries, at);
        if (record.type != kk::Guid{} && record.firstLba <= record.lastLba) {
            layout.partitions.push_back(EntryOf(record, sectorSize));
            layout.partitions.back().partitionNumber = static_cast<uint32_t>(layout.partitions.size());
        }
    }
    layout.header.partitionCount = static_cast<uint32_t>(layout.partitions.size());
    return true;
}

}  // namespace machine
