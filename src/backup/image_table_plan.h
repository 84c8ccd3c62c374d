#pragma once

#include "backup/backup_plan.h"
#include "core/device_file.h"

namespace kk {

/// Writes the partition table of an image of `totalSectors` sectors: the plan's partitions where they were placed, and
/// those that were not chosen as empty regions unless they are to be removed. An entry for which there is no memory is
/// left out of the table. The status of the failing write.
[[nodiscard]] KK_STATUS WriteImageTable(DeviceFile& target, const BackupRequest& request, const DiskLayout& layout,
                                        uint32_t sectorSize, uint64_t totalSectors, const BackupPlan& plan);

}  // namespace kk
