#pragma once

#include <cstddef>
#include <cstdint>

#include "core/bytes.h"
#include "core/guid.h"

// The parts of a VHDX file that are read, after the published format MS-VHDX.

namespace kk {

/// The file type identifier at the file's start.
inline constexpr uint8_t kVhdxSignature[8] = {'v', 'h', 'd', 'x', 'f', 'i', 'l', 'e'};

/// The two copies of the region table.
inline constexpr uint64_t kVhdxRegionTableOffsets[] = {0x30000, 0x40000};
inline constexpr uint32_t kVhdxRegionTableBytes = 0x10000;

struct VhdxRegionTableHeader {
    Le32 signature;
    Le32 checksum;
    Le32 entryCount;
    Le32 reserved;
};
static_assert(sizeof(VhdxRegionTableHeader) == 16 && offsetof(VhdxRegionTableHeader, entryCount) == 8);

inline constexpr uint32_t kVhdxRegionSignature = 0x69676572;  // "regi"

/// What a 64 KiB table holds: one entry less than this.
inline constexpr uint32_t kVhdxRegionEntryLimit = 2048;

struct VhdxRegionEntry {
    uint8_t guid[16];
    Le64 fileOffset;
    Le32 length;
    Le32 required;
};
static_assert(sizeof(VhdxRegionEntry) == 32 && alignof(VhdxRegionEntry) == 1);
static_assert(offsetof(VhdxRegionEntry, fileOffset) == 16 && offsetof(VhdxRegionEntry, length) == 24);
static_assert(sizeof(VhdxRegionTableHeader) + (kVhdxRegionEntryLimit - 1) * sizeof(VhdxRegionEntry) <=
              kVhdxRegionTableBytes);

inline constexpr Guid kVhdxBatRegion = {0x2DC27766, 0xF623, 0x4200, {0x9D, 0x64, 0x11, 0x5E, 0x9B, 0xFD, 0x4A, 0x08}};
inline constexpr Guid kVhdxMetadataRegion = {
    0x8B7CA206, 0x4790, 0x4B9A, {0xB8, 0xFE, 0x57, 0x5F, 0x05, 0x0F, 0x88, 0x6E}};

struct VhdxMetadataHeader {
    uint8_t signature[8];
    Le16 reserved;
    Le16 entryCount;
    uint8_t reserved12[20];
};
static_assert(sizeof(VhdxMetadataHeader) == 32 && offsetof(VhdxMetadataHeader, entryCount) == 10);

inline constexpr uint8_t kVhdxMetadataSignature[8] = {'m', 'e', 't', 'a', 'd', 'a', 't', 'a'};

struct VhdxMetadataEntry {
    uint8_t itemGuid[16];
    Le32 offset;  // from the start of the metadata region
    Le32 length;
    Le32 flags;
    Le32 reserved;
};
static_assert(sizeof(VhdxMetadataEntry) == 32 && alignof(VhdxMetadataEntry) == 1);
static_assert(offsetof(VhdxMetadataEntry, offset) == 16 && offsetof(VhdxMetadataEntry, length) == 20);

inline constexpr Guid kVhdxFileParametersItem = {
    0xCAA16737, 0xFA36, 0x4D43, {0xB3, 0xB6, 0x33, 0xF0, 0xAA, 0x44, 0xE7, 0x6B}};
inline constexpr Guid kVhdxVirtualDiskSizeItem = {
    0x2FA54224, 0xCD1B, 0x4876, {0xB2, 0x11, 0x5D, 0xBE, 0xD8, 0x3B, 0xF4, 0xB8}};
inline constexpr Guid kVhdxLogicalSectorSizeItem = {
    0x8141BF1D, 0xA96F, 0x4709, {0xBA, 0x47, 0xF2, 0x33, 0xA8, 0xFA, 0xAB, 0x5F}};

/// Sectors that one sector-bitmap block describes.
inline constexpr uint64_t kVhdxSectorsPerChunk = uint64_t{1} << 23;

/// An entry of the block allocation table: a state in the low 3 bits, a file offset in whole MiB in the high 44.
inline constexpr uint64_t kVhdxBlockStateMask = 7;
inline constexpr uint64_t kVhdxBlockFullyPresent = 6;
inline constexpr uint64_t kVhdxBlockOffsetMask = ~uint64_t{0xFFFFF};

}  // namespace kk
