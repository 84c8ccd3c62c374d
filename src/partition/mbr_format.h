#pragma once

#include <cstddef>
#include <cstdint>

#include "core/bytes.h"

namespace kk {

/// One of the four partition records of an MBR (UEFI 2.10, 5.2.1).
struct MbrRecord {
    uint8_t status;       // 0x80: active
    uint8_t firstChs[3];  // head, sector, cylinder
    uint8_t type;         // 0: unused
    uint8_t lastChs[3];
    Le32 firstLba;
    Le32 sectorCount;
};
static_assert(sizeof(MbrRecord) == 16 && alignof(MbrRecord) == 1 && offsetof(MbrRecord, firstLba) == 8);

inline constexpr uint32_t kMbrRecordCount = 4;

/// The master boot record: the first 512 bytes of sector 0, whatever the sector size.
struct MasterBootRecord {
    uint8_t bootCode[440];
    uint8_t diskSignature[4];
    uint8_t reserved[2];
    MbrRecord records[kMbrRecordCount];
    uint8_t bootSignature[2];
};
static_assert(sizeof(MasterBootRecord) == 512 && alignof(MasterBootRecord) == 1);
static_assert(offsetof(MasterBootRecord, records) == 446 && offsetof(MasterBootRecord, bootSignature) == 510);

inline constexpr uint8_t kBootSignature[2] = {0x55, 0xAA};

[[nodiscard]] inline bool HasBootSignature(const MasterBootRecord& mbr)
{
    return SameBytes(mbr.bootSignature, kBootSignature, sizeof(kBootSignature));
}

inline constexpr uint8_t kMbrStatusActive = 0x80;
/// The type of an ordinary data partition.
inline constexpr uint8_t kMbrTypeNtfs = 0x07;
inline constexpr uint8_t kMbrTypeGptProtective = 0xEE;
/// The address that says "beyond what cylinder, head and sector can tell".
inline constexpr uint8_t kChsBeyondRange[3] = {0xFE, 0xFF, 0xFF};

/// An inactive partition. Sectors are kept modulo 2^32, which is all that the format holds.
[[nodiscard]] inline MbrRecord MakeMbrRecord(uint8_t type, uint64_t firstLba, uint64_t sectorCount)
{
    MbrRecord record = {};
    CopyBytes(record.firstChs, kChsBeyondRange, sizeof(record.firstChs));
    record.type = type;
    CopyBytes(record.lastChs, kChsBeyondRange, sizeof(record.lastChs));
    record.firstLba = static_cast<uint32_t>(firstLba);
    record.sectorCount = static_cast<uint32_t>(sectorCount);
    return record;
}

}  // namespace kk
