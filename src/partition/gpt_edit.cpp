#include "partition/gpt_edit.h"

#include "core/status.h"
#include "disk/disk_layout.h"
#include "partition/gpt_copy.h"

namespace kk {

namespace {

/// Learnt before the first copy changes: without a header at LBA 1 nobody knows where the second copy is.
KK_STATUS ReadAlternateLba(DeviceFile& disk, uint32_t sectorSize, uint64_t& lba)
{
    GptCopy primary(disk, sectorSize);
    KK_TRY(primary.ReadHeader(kGptHeaderLba));
    lba = primary.Header().alternateLba.Get();
    return KK_STATUS_SUCCESS;
}

bool IsWanted(const GptEntry& entry, const GptEdit& edit)
{
    if (edit.mode == TableEditMode::Add) {
        return !IsUsed(entry);
    }
    return IsUsed(entry) && entry.firstLba.Get() == edit.matchLba;
}

void SetName(GptEntry& entry, const char16_t* name)
{
    constexpr size_t room = sizeof(entry.name) / sizeof(entry.name[0]) - 1;
    for (size_t i = 0; i < room && name[i] != 0; ++i) {
        entry.name[i] = static_cast<uint16_t>(name[i]);
    }
}

void Apply(const GptEdit& edit, GptEntry& entry, uint64_t entryBytes)
{
    if (edit.mode == TableEditMode::Resize) {
        entry.lastLba = edit.lastLba;
        return;
    }
    // All of the entry, which may be longer than what is known of it.
    ZeroBytes(&entry, entryBytes);
    if (edit.mode == TableEditMode::Remove) {
        return;
    }
    CopyBytes(entry.typeGuid, &edit.typeGuid, sizeof(entry.typeGuid));
    CopyBytes(entry.idGuid, &edit.uniqueGuid, sizeof(entry.idGuid));
    entry.firstLba = edit.firstLba;
    entry.lastLba = edit.lastLba;
    SetName(entry, edit.name);
}

/// The index of the entry to edit, or the number of entries.
uint32_t FindEntry(const GptCopy& copy, const GptEdit& edit)
{
    uint32_t index = 0;
    while (index < copy.EntryCount() && !IsWanted(copy.Entry(index), edit)) {
        ++index;
    }
    return index;
}

KK_STATUS EditCopy(DeviceFile& disk, uint32_t sectorSize, uint64_t headerLba, const GptEdit& edit, uint32_t* number)
{
    GptCopy copy(disk, sectorSize);
    KK_TRY(copy.ReadHeader(headerLba));
    KK_TRY(copy.ReadEntries());
    const uint32_t index = FindEntry(copy, edit);
    if (index == copy.EntryCount()) {
        return NoSuchEntry(edit.mode);
    }
    Apply(edit, copy.Entry(index), copy.EntryBytes());
    if (number != nullptr) {
        *number = index + 1;
    }
    return copy.Write();
}

}  // namespace

KK_STATUS EditGptPartition(DeviceFile& disk, uint32_t sectorSize, const GptEdit& edit, uint32_t* number)
{
    sectorSize = SectorSizeOrDefault(sectorSize);
    uint64_t alternateLba = 0;
    KK_TRY(ReadAlternateLba(disk, sectorSize, alternateLba));
    KK_TRY(EditCopy(disk, sectorSize, kGptHeaderLba, edit, number));
    KK_TRY(EditCopy(disk, sectorSize, alternateLba, edit, nullptr));
    (void)disk.Flush();
    return KK_STATUS_SUCCESS;
}

}  // namespace kk
