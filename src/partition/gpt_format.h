#pragma once

#include <cstddef>
#include <cstdint>

#include "core/bytes.h"
#include "disk/disk_controls.h"

namespace kk {

/// The GPT header (UEFI 2.10, 5.3.2): LBA 1 and the disk's last LBA. The rest of its sector is zero.
struct GptHeader {
    uint8_t signature[8];  // "EFI PART"
    Le32 revision;
    Le32 headerSize;
    Le32 headerCrc32;  // over headerSize bytes, taken with this field zero
    Le32 reserved;
    Le64 currentLba;
    Le64 alternateLba;
    Le64 firstUsableLba;
    Le64 lastUsableLba;  // inclusive
    uint8_t diskGuid[16];
    Le64 entriesLba;
    Le32 entryCount;
    Le32 entrySize;
    Le32 entriesCrc32;
};
static_assert(sizeof(GptHeader) == 92 && alignof(GptHeader) == 1);
static_assert(offsetof(GptHeader, headerCrc32) == 16 && offsetof(GptHeader, currentLba) == 24);
static_assert(offsetof(GptHeader, diskGuid) == 56 && offsetof(GptHeader, entriesLba) == 72);
static_assert(offsetof(GptHeader, entrySize) == 84 && offsetof(GptHeader, entriesCrc32) == 88);

inline constexpr uint8_t kGptSignature[8] = {'E', 'F', 'I', ' ', 'P', 'A', 'R', 'T'};

[[nodiscard]] inline bool HasGptSignature(const GptHeader& header)
{
    return SameBytes(header.signature, kGptSignature, sizeof(kGptSignature));
}

inline constexpr uint32_t kGptRevision = 0x00010000;
inline constexpr uint64_t kGptHeaderLba = 1;

/// A GPT entry (UEFI 2.10, 5.3.3).
struct GptEntry {
    uint8_t typeGuid[16];  // zero: unused
    uint8_t idGuid[16];
    Le64 firstLba;
    Le64 lastLba;  // inclusive
    Le64 attributes;
    Le16 name[kPartitionNameUnits];
};
static_assert(sizeof(GptEntry) == 128 && alignof(GptEntry) == 1);
static_assert(offsetof(GptEntry, firstLba) == 32 && offsetof(GptEntry, name) == 56);

[[nodiscard]] inline bool IsUsed(const GptEntry& entry)
{
    constexpr uint8_t unused[sizeof(entry.typeGuid)] = {};
    return !SameBytes(entry.typeGuid, unused, sizeof(unused));
}

inline constexpr uint32_t kGptMostEntries = 4096;

/// True when a header claims entries in a number and of a size that are taken for sane. Their size has no upper bound.
[[nodiscard]] inline bool HasSaneEntries(const GptHeader& header)
{
    const uint32_t count = header.entryCount.Get();
    return count != 0 && count <= kGptMostEntries && header.entrySize.Get() >= sizeof(GptEntry);
}

/// The usual entry array: 16 KiB, which the standard reserves at least.
inline constexpr uint32_t kGptUsualEntryCount = 128;
inline constexpr uint32_t kGptEntryArrayBytes = kGptUsualEntryCount * sizeof(GptEntry);

/// Bytes at a disk's end in which no partition is placed: always 34 sectors. The second copy's usual array and its
/// header take 33 of 512 bytes, and fewer when sectors are larger.
[[nodiscard]] constexpr uint64_t GptEndReserve(uint32_t sectorSize)
{
    return uint64_t{34} * sectorSize;
}

/// Sectors that the usual entry array takes.
[[nodiscard]] constexpr uint64_t GptEntryArraySectors(uint32_t sectorSize)
{
    return (uint64_t{sectorSize} + kGptEntryArrayBytes - 1) / sectorSize;
}

}  // namespace kk
