#pragma once

#include <cstdint>
#include <vector>

#include "machine/storage.h"
#include "machine/table_format.h"

namespace machine {

/// One of the two copies of a GPT.
struct GptCopy {
    std::vector<uint8_t> sector = {};  // the header's, with whatever follows the fields that we know
    GptHeaderRecord header = {};
    std::vector<uint8_t> entries = {};
};

/// Reads the copy whose header lies at `lba`. False when it is not intact.
bool ReadGptCopy(Storage& storage, uint32_t sectorSize, uint64_t lba, GptCopy& copy);

/// Writes entries and header to where the header says, with both checksums made anew.
bool WriteGptCopy(Storage& storage, uint32_t sectorSize, GptCopy copy);

}  // namespace machine
