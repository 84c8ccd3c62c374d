#pragma once

#include <optional>
#include <vector>

#include "exports/support/disk_kind.h"
#include "machine/disk.h"
#include "machine/table_format.h"

/// One copy of a GPT as its bytes tell it.
struct GptOnDisk {
    machine::GptHeaderRecord header = {};
    std::vector<machine::GptEntryRecord> entries = {};
    bool sound = false;  // signature, place and both checksums are right

    /// What each slot holds, in bytes; nothing for an unused one.
    std::vector<std::optional<Place>> Slots(uint32_t sectorSize) const;
};

GptOnDisk ReadGpt(machine::Disk& disk, uint64_t headerLba);

/// The MBR as its bytes tell it, containers and protective entries included.
machine::MbrRecord ReadMbr(machine::Disk& disk);

/// What each slot of the disk's table holds, up to the last used one; for a GPT both copies must be sound and say the
/// same, or the test fails.
std::vector<std::optional<Place>> ReadSlots(machine::Disk& disk, const DiskKind& kind);
