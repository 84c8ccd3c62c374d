#include "backup/image_partition_table.h"

#include "core/checked_math.h"
#include "core/heap_block.h"
#include "core/status.h"
#include "disk/disk_layout.h"
#include "partition/crc32.h"
#include "partition/gpt_format.h"
#include "partition/mbr_format.h"
#include "partition/table_sector.h"

namespace kk {

namespace {

MbrRecord ToMbrRecord(const MbrImageEntry& entry, uint32_t sectorSize)
{
    MbrRecord record = MakeMbrRecord(entry.type, entry.offset / sectorSize, entry.length / sectorSize);
    record.status = entry.active != 0 ? kMbrStatusActive : 0;
    return record;
}

GptEntry ToGptEntry(const GptImageEntry& entry, uint32_t sectorSize)
{
    GptEntry result = {};
    CopyBytes(result.typeGuid, &entry.typeGuid, sizeof(result.typeGuid));
    CopyBytes(result.idGuid, &entry.idGuid, sizeof(result.idGuid));
    result.firstLba = entry.offset / sectorSize;
    result.lastLba = LastLba(entry.offset, entry.length, sectorSize);
    CopyBytes(result.name, entry.name, sizeof(result.name));
    return result;
}

/// Where the parts of a GPT lie on a disk.
struct GptPlaces {
    uint64_t lastLba;
    uint64_t entryArraySectors;
    uint64_t backupEntriesLba;
};

GptHeader MakeHeader(const GptPlaces& places, const Guid& diskGuid, uint32_t entriesCrc, bool primary)
{
    constexpr uint64_t primaryEntriesLba = kGptHeaderLba + 1;
    GptHeader header = {};
    CopyBytes(header.signature, kGptSignature, sizeof(header.signature));
    header.revision = kGptRevision;
    header.headerSize = uint32_t{sizeof(GptHeader)};
    header.currentLba = primary ? kGptHeaderLba : places.lastLba;
    header.alternateLba = primary ? places.lastLba : kGptHeaderLba;
    header.firstUsableLba = places.entryArraySectors + primaryEntriesLba;
    header.lastUsableLba = places.backupEntriesLba - 1;
    CopyBytes(header.diskGuid, &diskGuid, sizeof(header.diskGuid));
    header.entriesLba = primary ? primaryEntriesLba : places.backupEntriesLba;
    header.entryCount = kGptUsualEntryCount;
    header.entrySize = uint32_t{sizeof(GptEntry)};
    header.entriesCrc32 = entriesCrc;
    header.headerCrc32 = Crc32(&header, sizeof(header));
    return header;
}

/// The MBR that makes tools without knowledge of GPT see a full disk (UEFI 2.10, 5.2.3).
void MakeProtectiveMbr(uint64_t totalSectors, MasterBootRecord& mbr)
{
    constexpr uint8_t firstChs[3] = {0x00, 0x02, 0x00};
    constexpr uint8_t lastChs[3] = {0xFF, 0xFF, 0xFF};
    MbrRecord& record = mbr.records[0];
    CopyBytes(record.firstChs, firstChs, sizeof(firstChs));
    record.type = kMbrTypeGptProtective;
    CopyBytes(record.lastChs, lastChs, sizeof(lastChs));
    record.firstLba = uint32_t{1};
    record.sectorCount = totalSectors < 2 ? 0 : static_cast<uint32_t>(Min(totalSectors - 1, uint64_t{0xFFFFFFFF}));
    CopyBytes(mbr.bootSignature, kBootSignature, sizeof(kBootSignature));
}

void FillEntryArray(uint32_t sectorSize, const GptImageEntry* entries, size_t count, GptEntry* slots)
{
    size_t used = 0;
    for (size_t i = 0; i < count && used < kGptUsualEntryCount; ++i) {
        if (entries[i].offset != 0) {
            slots[used++] = ToGptEntry(entries[i], sectorSize);
        }
    }
}

KK_STATUS WriteHeader(DeviceFile& target, uint32_t sectorSize, const GptHeader& header, uint8_t* sector)
{
    ZeroBytes(sector, SectorBufferBytes(sectorSize));
    CopyBytes(sector, &header, sizeof(header));
    return target.WriteAt(header.currentLba.Get() * sectorSize, sector, sectorSize);
}

}  // namespace

KK_STATUS WriteImageMbr(DeviceFile& target, uint32_t sectorSize, const MbrImageEntry* entries, size_t count)
{
    sectorSize = SectorSizeOrDefault(sectorSize);
    HeapBlock sector;
    if (!sector.Allocate(SectorBufferBytes(sectorSize))) {
        return KK_STATUS_UNSUCCESSFUL;
    }
    auto& mbr = *reinterpret_cast<MasterBootRecord*>(sector.Data());
    for (size_t i = 0; i < Min(count, size_t{kMbrRecordCount}); ++i) {
        mbr.records[i] = ToMbrRecord(entries[i], sectorSize);
    }
    CopyBytes(mbr.bootSignature, kBootSignature, sizeof(kBootSignature));
    const KK_STATUS status = target.WriteAt(0, sector.Data(), sectorSize);
    // Also after a failed write, on purpose, and whatever comes of it: the target is left with nothing pending.
    (void)target.Flush();
    return status;
}

KK_STATUS WriteImageGpt(DeviceFile& target, uint32_t sectorSize, uint64_t totalSectors, const Guid& diskGuid,
                        const GptImageEntry* entries, size_t count)
{
    sectorSize = SectorSizeOrDefault(sectorSize);
    GptPlaces places = {};
    // On a disk too small for a GPT these pass below zero, on purpose: the write of the second array then fails.
    places.lastLba = totalSectors - 1;
    places.entryArraySectors = GptEntryArraySectors(sectorSize);
    places.backupEntriesLba = places.lastLba - places.entryArraySectors;
    const auto arrayBytes = static_cast<uint32_t>(places.entryArraySectors * sectorSize);

    HeapBlock array;
    if (!array.Allocate(arrayBytes)) {
        return KK_STATUS_UNSUCCESSFUL;
    }
    FillEntryArray(sectorSize, entries, count, reinterpret_cast<GptEntry*>(array.Data()));
    // Over whole sectors, on purpose: for the usual sector sizes that is the array and nothing else.
    const uint32_t entriesCrc = Crc32(array.Data(), arrayBytes);
    const GptHeader primary = MakeHeader(places, diskGuid, entriesCrc, true);
    const GptHeader backup = MakeHeader(places, diskGuid, entriesCrc, false);

    HeapBlock sector;
    if (!sector.Allocate(SectorBufferBytes(sectorSize))) {
        return KK_STATUS_UNSUCCESSFUL;
    }
    MakeProtectiveMbr(totalSectors, *reinterpret_cast<MasterBootRecord*>(sector.Data()));
    KK_TRY(target.WriteAt(0, sector.Data(), sectorSize));
    KK_TRY(WriteHeader(target, sectorSize, primary, sector.Data()));
    KK_TRY(target.WriteAt(primary.entriesLba.Get() * sectorSize, array.Data(), arrayBytes));
    KK_TRY(target.WriteAt(backup.entriesLba.Get() * sectorSize, array.Data(), arrayBytes));
    KK_TRY(WriteHeader(target, sectorSize, backup, sector.Data()));
    (void)target.Flush();
    return KK_STATUS_SUCCESS;
}

}  // namespace kk
