#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "machine/storage.h"
#include "machine/table_format.h"

// Sector 0 of a disk with an MBR, and the sectors of its extended chain.

namespace machine {

/// So many links of a chain are followed; a damaged one may lead in circles.
inline constexpr uint32_t kChainLimit = 128;

struct BootRecord {
    uint64_t offset = 0;               // in bytes
    std::vector<uint8_t> sector = {};  // the record's, with whatever follows it
    MbrRecord record = {};
};

/// Nothing when the sector cannot be read or is not marked as a boot record.
std::optional<BootRecord> ReadBootRecord(Storage& storage, uint32_t sectorSize, uint64_t offset);

/// Writes the record into its sector, which keeps what follows.
bool WriteBootRecord(Storage& storage, BootRecord boot);

}  // namespace machine
