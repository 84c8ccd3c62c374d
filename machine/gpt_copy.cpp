#include "machine/gpt_copy.h"

#include <algorithm>
#include <cstring>

#include "machine/crc32.h"

namespace machine {

namespace {

constexpr uint64_t kEntriesLimit = 16 * 1024 * 1024;  // more than any table in use; a header may claim terabytes

uint64_t EntriesBytes(const GptHeaderRecord& header)
{
    return static_cast<uint64_t>(header.entryCount) * header.entryBytes;
}

/// The checksum of the header in `sector`, whose own field counts as zeros.
uint32_t HeaderCrc(const std::vector<uint8_t>& sector, uint32_t headerBytes)
{
    std::vector<uint8_t> covered(sector.begin(), sector.begin() + headerBytes);
    std::fill_n(covered.begin() + offsetof(GptHeaderRecord, headerCrc32), sizeof(uint32_t), uint8_t{0});
    return Crc32(covered);
}

bool HeaderIsIntact(const std::vector<uint8_t>& sector, const GptHeaderRecord& header, uint64_t lba)
{
    return std::memcmp(header.signature, kGptSignature, sizeof(kGptSignature)) == 0 &&
           header.headerBytes >= sizeof(GptHeaderRecord) && header.headerBytes <= sector.size() &&
           header.ownLba == lba && HeaderCrc(sector, header.headerBytes) == header.headerCrc32;
}

}  // namespace

bool ReadGptCopy(Storage& storage, uint32_t sectorSize, uint64_t lba, GptCopy& copy)
{
    const uint64_t sectorCount = storage.Size() / sectorSize;
    copy.sector.resize(sectorSize);
    if (lba >= sectorCount || !storage.Read(lba * sectorSize, copy.sector)) {
        return false;
    }
    copy.header = TakeRecord<GptHeaderRecord>(copy.sector);
    if (!HeaderIsIntact(copy.sector, copy.header, lba)) {
        return false;
    }
    const uint64_t bytes = EntriesBytes(copy.header);
    if (copy.header.entryBytes < sizeof(GptEntryRecord) || copy.header.entryBytes % 8 != 0 || bytes > kEntriesLimit ||
        copy.header.entriesLba >= sectorCount) {
        return false;
    }
    copy.entries.resize(bytes);
    return storage.Read(copy.header.entriesLba * sectorSize, copy.entries) &&
           Crc32(copy.entries) == copy.header.entriesCrc32;
}

bool WriteGptCopy(Storage& storage, uint32_t sectorSize, GptCopy copy)
{
    copy.header.entriesCrc32 = Crc32(std::span(copy.entries).first(EntriesBytes(copy.header)));
    PutRecord(copy.sector, 0, copy.header);
    copy.header.headerCrc32 = HeaderCrc(copy.sector, copy.header.headerBytes);
    PutRecord(copy.sector, 0, copy.header);
    return storage.Write(copy.header.entriesLba * sectorSize, copy.entries) &&
           storage.Write(copy.header.ownLba * sectorSize, copy.sector);
}

}  // namespace machine
