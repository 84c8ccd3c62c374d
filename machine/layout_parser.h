#pragma once

#include <cstdint>
#include <vector>

#include "disk/disk_controls.h"
#include "machine/storage.h"

namespace machine {

/// A disk's partition table as the disk driver tells it.
struct Layout {
    kk::DriveLayoutInformationEx header = {};
    std::vector<kk::PartitionInformationEx> partitions = {};
};

/// Reads the table from the bytes of a disk. MBR: four entries of sector 0, then four of each link of the extended
/// chain, unused ones and containers included. GPT: the used entries of the primary table, or of the backup when the
/// primary is damaged, or what sector 0 says when both are. A bare boot sector is one entry at offset 0.
Layout ParseLayout(Storage& storage, uint32_t sectorSize);

/// The GPT of a disk, or false when neither copy is intact.
bool ParseGpt(Storage& storage, uint32_t sectorSize, Layout& layout);

bool IsExtendedContainer(uint8_t mbrType);

}  // namespace machine
