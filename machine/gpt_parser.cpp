#include <cstring>

#include "machine/gpt_copy.h"
#include "machine/layout_parser.h"

namespace machine {

namespace {

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
    if (!ReadGptCopy(storage, sectorSize, 1, copy) && !ReadGptCopy(storage, sectorSize, lastLba, copy)) {
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
