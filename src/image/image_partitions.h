#pragma once

#include <cstdint>

#include "core/array.h"
#include "core/guid.h"
#include "disk/disk_controls.h"
#include "disk/disk_layout.h"
#include "image/vhdx_reader.h"

namespace kk {

/// A used entry of an image's partition table. Offset and length are what the table says, which may lie anywhere.
struct ImagePartition {
    uint32_t number;  // slot in the table, from 1
    Guid typeGuid;    // zero on MBR disks, as is idGuid
    Guid idGuid;
    uint64_t offset;                     // bytes
    uint64_t length;                     // bytes
    char16_t name[kPartitionNameUnits];  // GPT: not terminated when all units are used; MBR: a label
};

using ImagePartitionList = Array<ImagePartition>;

// Failures of all of these: KK_STATUS_REGISTRY_CORRUPT when there is no such table; KK_STATUS_UNSUCCESSFUL when memory
// ran out or a GPT claims 4 GiB of entries or more; the status of the failing read. `list` may have grown then.

/// Appends the partitions of the image's GPT, of which only the signature is checked. A table that claims to have no
/// entries, more than 4096 or entries below 128 bytes has no partitions.
[[nodiscard]] KK_STATUS ReadGptPartitions(VhdxReader& reader, Guid& diskGuid, ImagePartitionList& list);

/// Appends the partitions of the image's MBR, without logical drives; at least one.
[[nodiscard]] KK_STATUS ReadMbrPartitions(VhdxReader& reader, ImagePartitionList& list);

/// An image's partition table.
struct ImageTable {
    PartitionStyle style = PartitionStyle::Raw;
    Guid diskGuid = {};  // zero on MBR disks
    ImagePartitionList partitions;
};

/// Reads the GPT, and the MBR if that fails for whatever reason. When both fail the GPT's status is told.
[[nodiscard]] KK_STATUS ReadImageTable(VhdxReader& reader, ImageTable& table);

/// Opens an image, reads its table as ReadImageTable does and finds the partition with that number, of several the
/// last. KK_STATUS_INVALID_PARAMETER when there is none.
[[nodiscard]] KK_STATUS OpenImagePartition(const char16_t* path, uint32_t number, VhdxReader& reader,
                                           ImagePartition& partition);

}  // namespace kk
