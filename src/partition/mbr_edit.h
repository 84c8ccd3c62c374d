#pragma once

#include <cstdint>

#include "core/device_file.h"
#include "partition/table_edit_mode.h"

namespace kk {

/// One change of an MBR's four primary entries. Numbers are sectors. Each member says which modes read it.
struct MbrEdit {
    TableEditMode mode = TableEditMode::Add;
    uint64_t matchLba = 0;     // Remove, Resize: where the entry starts
    uint64_t firstLba = 0;     // Add; stored modulo 2^32, on purpose: the format holds no more
    uint64_t sectorCount = 0;  // Add, Resize; likewise
    uint8_t type = 0;          // Add
};

/// Edits sector 0. Extended and logical partitions are never touched. See table_edit.h for the statuses and `number`.
[[nodiscard]] KK_STATUS EditMbrPartition(DeviceFile& disk, uint32_t sectorSize, const MbrEdit& edit, uint32_t* number);

}  // namespace kk
