#pragma once

#include <cstdint>

#include "core/device_file.h"
#include "core/guid.h"
#include "partition/table_edit_mode.h"

namespace kk {

/// One change of a GPT. Each member says which modes read it.
struct GptEdit {
    TableEditMode mode = TableEditMode::Add;
    uint64_t matchLba = 0;           // Remove, Resize: where the entry starts
    uint64_t firstLba = 0;           // Add
    uint64_t lastLba = 0;            // Add, Resize; inclusive
    Guid typeGuid = {};              // Add
    Guid uniqueGuid = {};            // Add
    const char16_t* name = nullptr;  // Add, where it must be given; at most 35 units are taken
};

/// Edits the copy of the GPT that LBA 1 describes, and if that worked the one at the alternate LBA. Of the headers only
/// the checksums change, and the rest of their sectors becomes zero. See table_edit.h for the statuses and `number`.
[[nodiscard]] KK_STATUS EditGptPartition(DeviceFile& disk, uint32_t sectorSize, const GptEdit& edit, uint32_t* number);

}  // namespace kk
