#include "partition/table_edit.h"

#include "partition/gpt_edit.h"
#include "partition/identifiers.h"
#include "partition/mbr_edit.h"
#include "partition/mbr_format.h"
#include "partition/table_sector.h"

namespace kk {

namespace {

constexpr char16_t kNewPartitionName[] = u"Basic data partition";

}  // namespace

KK_STATUS AddPartitionEntry(DeviceFile& disk, uint32_t sectorSize, PartitionStyle style, uint64_t offset,
                            uint64_t length, const Guid& gptType, uint8_t mbrType, uint32_t* number)
{
    sectorSize = SectorSizeOrDefault(sectorSize);
    if (style != PartitionStyle::Gpt) {
        const MbrEdit edit = {.mode = TableEditMode::Add,
                              .firstLba = offset / sectorSize,
                              .sectorCount = length / sectorSize,
                              .type = mbrType};
        return EditMbrPartition(disk, sectorSize, edit, number);
    }
    GptEdit edit = {.mode = TableEditMode::Add,
                    .firstLba = offset / sectorSize,
                    .lastLba = LastLba(offset, length, sectorSize),
                    .typeGuid = gptType,
                    .name = kNewPartitionName};
    GenerateRandomGuid(edit.uniqueGuid);
    return EditGptPartition(disk, sectorSize, edit, number);
}

KK_STATUS AddDataPartition(DeviceFile& disk, const DiskLayout& layout, const DiskRange& place)
{
    Guid gptType;
    GetBasicDataTypeGuid(gptType);
    return AddPartitionEntry(disk, layout.sectorSize, layout.style, place.start, place.length, gptType, kMbrTypeNtfs,
                             nullptr);
}

KK_STATUS RemovePartitionEntry(DeviceFile& disk, uint32_t sectorSize, PartitionStyle style, uint64_t offset)
{
    sectorSize = SectorSizeOrDefault(sectorSize);
    const uint64_t matchLba = offset / sectorSize;
    if (style != PartitionStyle::Gpt) {
        return EditMbrPartition(disk, sectorSize, {.mode = TableEditMode::Remove, .matchLba = matchLba}, nullptr);
    }
    return EditGptPartition(disk, sectorSize, {.mode = TableEditMode::Remove, .matchLba = matchLba}, nullptr);
}

KK_STATUS ResizePartitionEntry(DeviceFile& disk, uint32_t sectorSize, PartitionStyle style, uint64_t offset,
                               uint64_t newLength)
{
    sectorSize = SectorSizeOrDefault(sectorSize);
    const uint64_t matchLba = offset / sectorSize;
    if (style != PartitionStyle::Gpt) {
        const MbrEdit edit = {
            .mode = TableEditMode::Resize, .matchLba = matchLba, .sectorCount = newLength / sectorSize};
        return EditMbrPartition(disk, sectorSize, edit, nullptr);
    }
    const GptEdit edit = {
        .mode = TableEditMode::Resize, .matchLba = matchLba, .lastLba = LastLba(offset, newLength, sectorSize)};
    return EditGptPartition(disk, sectorSize, edit, nullptr);
}

}  // namespace kk
