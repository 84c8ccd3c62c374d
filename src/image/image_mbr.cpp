#include "core/status.h"
#include "core/text.h"
#include "image/image_partitions.h"
#include "image/image_sector.h"
#include "partition/mbr_format.h"

namespace kk {

namespace {

struct TypeLabel {
    uint8_t type;
    const char16_t* label;
};

constexpr TypeLabel kLabels[] = {
    {0x06, u"FAT16"},      {0x0E, u"FAT16"}, {0x07, u"NTFS / exFAT"},
    {0x0B, u"FAT32"},      {0x0C, u"FAT32"}, {0x27, u"Windows recovery"},
    {0x82, u"Linux swap"}, {0x83, u"Linux"}, {0xAF, u"HFS+"},
};

void LabelType(uint8_t type, char16_t* label)
{
    for (const TypeLabel& known : kLabels) {
        if (known.type == type) {
            CopyText(label, kPartitionNameUnits, known.label);
            return;
        }
    }
    constexpr char16_t digits[] = u"0123456789ABCDEF";
    size_t position = 0;
    AppendText(label, kPartitionNameUnits, position, u"Type 0x");
    AppendUnit(label, kPartitionNameUnits, position, digits[type >> 4]);
    AppendUnit(label, kPartitionNameUnits, position, digits[type & 0xF]);
}

ImagePartition ToImagePartition(const MbrRecord& record, uint32_t number, uint64_t sector)
{
    ImagePartition partition = {};
    partition.number = number;
    partition.offset = sector * record.firstLba.Get();
    partition.length = sector * record.sectorCount.Get();
    LabelType(record.type, partition.name);
    return partition;
}

}  // namespace

KK_STATUS ReadMbrPartitions(VhdxReader& reader, ImagePartitionList& list)
{
    const uint32_t sector = reader.LogicalSectorSize();
    HeapBlock block;
    KK_TRY(ReadImageSector(reader, 0, block));
    const auto& mbr = *reinterpret_cast<const MasterBootRecord*>(block.Data());
    if (sector < sizeof(MasterBootRecord) || !HasBootSignature(mbr)) {
        return KK_STATUS_REGISTRY_CORRUPT;
    }
    bool found = false;
    for (uint32_t i = 0; i < kMbrRecordCount; ++i) {
        const MbrRecord& record = mbr.records[i];
        if (record.type == 0 || record.type == kMbrTypeGptProtective || record.sectorCount.Get() == 0) {
            continue;
        }
        if (!list.Append(ToImagePartition(record, i + 1, sector))) {
            return KK_STATUS_UNSUCCESSFUL;
        }
        found = true;
    }
    return found ? KK_STATUS_SUCCESS : KK_STATUS_REGISTRY_CORRUPT;
}

}  // namespace kk
