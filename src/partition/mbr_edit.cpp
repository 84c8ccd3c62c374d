#include "partition/mbr_edit.h"

#include "core/heap_block.h"
#include "core/status.h"
#include "disk/disk_layout.h"
#include "partition/mbr_format.h"
#include "partition/table_sector.h"

namespace kk {

namespace {

bool IsWanted(const MbrRecord& record, const MbrEdit& edit)
{
    if (edit.mode == TableEditMode::Add) {
        return record.type == 0;
    }
    // In 64 bits: a start that the format cannot hold must not match the one that it would be cut to.
    return record.type != 0 && record.firstLba.Get() == edit.matchLba;
}

/// The record to edit, or null.
MbrRecord* FindRecord(MasterBootRecord& mbr, const MbrEdit& edit)
{
    for (MbrRecord& record : mbr.records) {
        if (IsWanted(record, edit)) {
            return &record;
        }
    }
    return nullptr;
}

void Apply(const MbrEdit& edit, MbrRecord& record)
{
    switch (edit.mode) {
    case TableEditMode::Add:
        record = MakeMbrRecord(edit.type, edit.firstLba, edit.sectorCount);
        break;
    case TableEditMode::Remove:
        record = {};
        break;
    case TableEditMode::Resize:
        record.sectorCount = static_cast<uint32_t>(edit.sectorCount);
        break;
    }
}

}  // namespace

KK_STATUS EditMbrPartition(DeviceFile& disk, uint32_t sectorSize, const MbrEdit& edit, uint32_t* number)
{
    sectorSize = SectorSizeOrDefault(sectorSize);
    HeapBlock sector;
    if (!sector.Allocate(SectorBufferBytes(sectorSize))) {
        return KK_STATUS_NO_MEMORY;
    }
    KK_TRY(disk.ReadAt(0, sector.Data(), sectorSize));
    auto& mbr = *reinterpret_cast<MasterBootRecord*>(sector.Data());
    if (!HasBootSignature(mbr)) {
        return KK_STATUS_REGISTRY_CORRUPT;
    }
    MbrRecord* const record = FindRecord(mbr, edit);
    if (record == nullptr) {
        return NoSuchEntry(edit.mode);
    }
    Apply(edit, *record);
    if (number != nullptr) {
        *number = static_cast<uint32_t>(record - mbr.records) + 1;
    }
    KK_TRY(disk.WriteAt(0, sector.Data(), sectorSize));
    (void)disk.Flush();
    return KK_STATUS_SUCCESS;
}

}  // namespace kk
