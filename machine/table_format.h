#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>

#include "core/guid.h"

// Partition tables as they lie on a disk. The machine runs on little-endian hosts only, so fields hold their values;
// records are copied in and out of buffers and never used in place.

namespace machine {

#pragma pack(push, 1)

struct MbrEntryRecord {
    uint8_t status;
    uint8_t firstChs[3];
    uint8_t type;
    uint8_t lastChs[3];
    uint32_t firstSector;
    uint32_t sectorCount;
};

struct MbrRecord {
    uint8_t bootCode[440];
    uint32_t signature;
    uint16_t reserved;
    MbrEntryRecord entries[4];
    uint16_t mark;
};

struct GptHeaderRecord {
    uint8_t signature[8];
    uint32_t revision;
    uint32_t headerBytes;
    uint32_t headerCrc32;
    uint32_t reserved;
    uint64_t ownLba;
    uint64_t otherLba;
    uint64_t firstUsableLba;
    uint64_t lastUsableLba;
    kk::Guid diskId;
    uint64_t entriesLba;
    uint32_t entryCount;
    uint32_t entryBytes;
    uint32_t entriesCrc32;
};

struct GptEntryRecord {
    kk::Guid type;
    kk::Guid id;
    uint64_t firstLba;
    uint64_t lastLba;  // inclusive
    uint64_t attributes;
    char16_t name[36];
};

#pragma pack(pop)

static_assert(sizeof(MbrRecord) == 512 && offsetof(MbrRecord, entries) == 446);
static_assert(sizeof(GptHeaderRecord) == 92 && offsetof(GptHeaderRecord, entriesLba) == 72);
static_assert(sizeof(GptEntryRecord) == 128 && offsetof(GptEntryRecord, name) == 56);

inline constexpr uint16_t kBootMark = 0xAA55;
inline constexpr uint8_t kProtectiveType = 0xEE;
inline constexpr uint8_t kGptSignature[8] = {'E', 'F', 'I', ' ', 'P', 'A', 'R', 'T'};

/// The record at `offset` of a buffer that is long enough.
template <typename Record>
Record TakeRecord(std::span<const uint8_t> bytes, size_t offset = 0)
{
    Record record;
    std::memcpy(&record, bytes.subspan(offset, sizeof(Record)).data(), sizeof(Record));
    return record;
}

template <typename Record>
void PutRecord(std::span<uint8_t> bytes, size_t offset, const Record& record)
{
    std::memcpy(bytes.subspan(offset, sizeof(Record)).data(), &record, sizeof(Record));
}

}  // namespace machine
