#pragma once

#include <cstddef>
#include <cstdint>

#include "core/array.h"
#include "core/device_file.h"
#include "core/guid.h"
#include "disk/disk_controls.h"

namespace kk {

/// A partition for WriteImageMbr.
struct MbrImageEntry {
    uint64_t offset;  // bytes
    uint64_t length;  // bytes
    uint8_t type;
    uint8_t active;  // non-zero: bootable
};

/// A partition for WriteImageGpt.
struct GptImageEntry {
    uint32_t reserved;  // 0; not read
    Guid typeGuid;
    Guid idGuid;
    uint64_t offset;  // bytes; 0 leaves the entry out
    uint64_t length;  // bytes
    char16_t name[kPartitionNameUnits];
};
static_assert(sizeof(GptImageEntry) == 128);

// Both writers make every byte of a fresh partition table and check nothing: what overlaps or lies outside the disk is
// written as computed. A sector size of 0 means 512. KK_STATUS_UNSUCCESSFUL when memory runs out (not "no memory", on
// purpose: one failure for "no table"), and nothing is written then; else the status of the failing write.

/// Writes sector 0 with the first four entries. Boot code and disk signature stay zero, on purpose: nobody shall start
/// from an image or take it for its source.
[[nodiscard]] KK_STATUS WriteImageMbr(DeviceFile& target, uint32_t sectorSize, const MbrImageEntry* entries,
                                      size_t count);

/// Writes a protective MBR and both copies of a GPT with the first 128 entries on a disk of `totalSectors` sectors. An
/// entry at offset 0 would lie over the table and takes no slot. Attributes are zero, on purpose: "required", "hidden"
/// and the like were said of the source, not of its image.
[[nodiscard]] KK_STATUS WriteImageGpt(DeviceFile& target, uint32_t sectorSize, uint64_t totalSectors,
                                      const Guid& diskGuid, const GptImageEntry* entries, size_t count);

}  // namespace kk
