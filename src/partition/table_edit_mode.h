#pragma once

#include <cstdint>

#include "kestrelkit/kestrelkit.h"

namespace kk {

/// What becomes of the partition table entry that an edit picks.
enum class TableEditMode : uint32_t {
    Add = 0,     // the first unused entry is filled
    Remove = 1,  // all of it becomes zero
    Resize = 2,  // its end moves
};

/// The failure of an edit that finds no entry for it.
[[nodiscard]] constexpr KK_STATUS NoSuchEntry(TableEditMode mode)
{
    return mode == TableEditMode::Add ? KK_STATUS_DISK_FULL : KK_STATUS_INVALID_PARAMETER;
}

}  // namespace kk
