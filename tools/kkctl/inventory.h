#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "kit.h"
#include "partition_types.h"

namespace kkctl {

/// A `KkDiskInfo` without packing.
struct Disk {
    uint32_t number = 0;
    uint64_t size = 0;
    uint32_t sectorSize = 0;
    uint32_t partitionStyle = KK_PARTITION_STYLE_RAW;
    uint32_t partitionCount = 0;
};

/// A `KkPartitionInfo` without packing, its text as UTF-8.
struct Partition {
    uint32_t number = 0;
    uint64_t startOffset = 0;
    uint64_t length = 0;
    GuidBytes typeGuid = {};
    uint8_t mbrType = 0;
    std::string name;
    std::string driveLetter;
    uint64_t fileSystemSize = 0;
    std::string fileSystemName;
    std::string deviceName;
    std::string volumePath;
};

/// Asks the library for all disks.
KK_STATUS ListDisks(const Kit& kit, std::vector<Disk>& disks);

/// Asks the library for all partitions of one disk.
KK_STATUS ListPartitions(const Kit& kit, uint32_t diskNumber, std::vector<Partition>& partitions);

}  // namespace kkctl
