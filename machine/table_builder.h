#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "core/guid.h"
#include "machine/storage.h"

namespace machine {

inline constexpr kk::Guid kBasicDataType = {
    0xEBD0A0A2, 0xB9E5, 0x4433, {0x87, 0xC0, 0x68, 0xB6, 0xB7, 0x26, 0x99, 0xC7}};
inline constexpr kk::Guid kEfiSystemType = {
    0xC12A7328, 0xF81F, 0x11D2, {0xBA, 0x4B, 0x00, 0xA0, 0xC9, 0x3E, 0xC9, 0x3B}};
inline constexpr kk::Guid kReservedType = {
    0xE3C9E316, 0x0B5C, 0x4DB8, {0x81, 0x7D, 0xF9, 0x2D, 0xF0, 0x02, 0x15, 0xAE}};
inline constexpr kk::Guid kSampleDiskId = {
    0x6B3F2C51, 0x8E1D, 0x4A7B, {0x9C, 0x05, 0x2D, 0x4E, 0x6F, 0x81, 0x93, 0xA4}};

/// Offsets and lengths are bytes.
struct GptPartition {
    uint64_t start = 0;
    uint64_t length = 0;
    kk::Guid type = kBasicDataType;
    std::optional<kk::Guid> id = std::nullopt;  // one made from the slot unless given
    std::u16string name = {};
    uint64_t attributes = 0;
    std::optional<uint32_t> slot = std::nullopt;  // the next one unless given
};

struct GptTable {
    std::vector<GptPartition> partitions = {};
    kk::Guid diskId = kSampleDiskId;
    uint32_t entryCount = 128;
    uint32_t entryBytes = 128;
};

struct MbrPartition {
    uint64_t start = 0;
    uint64_t length = 0;
    uint8_t type = 0x07;
    bool active = false;
};

struct MbrTable {
    std::vector<MbrPartition> partitions = {};
    /// Drives inside an extended partition, in rising order with at least a sector between them. The container begins
    /// 1 MiB (or what is free) before the first and ends with the last.
    std::vector<MbrPartition> logicals = {};
    uint32_t signature = 0x5EED1234;
    uint8_t containerType = 0x0F;
};

/// The identifier of the partition in a slot that was given none.
kk::Guid MadeUpPartitionId(uint32_t slot);

/// Writes protective MBR, both headers and both entry arrays. Throws when the table does not fit the disk.
void WriteGptTable(Storage& storage, uint32_t sectorSize, const GptTable& table);

/// Writes sector 0 and the chain of extended boot records. Throws when the table cannot be expressed.
void WriteMbrTable(Storage& storage, uint32_t sectorSize, const MbrTable& table);

}  // namespace machine
