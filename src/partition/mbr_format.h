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
inline constexpr uint8_t kMbrStatusActive = 0x80;
inline constexpr uint8_t kMbrTypeGptProtective = 0xEE;
/// The address that says "beyond what cylinder, head and sector can tell".
inline constexpr uint8_t kChsBeyondRange[3] = {0xFE, 0xFF, 0xFF};

}  // namespace kk
