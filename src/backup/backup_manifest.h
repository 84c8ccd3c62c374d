#pragma once

#include <cstdint>

#include "backup/backup_plan.h"

namespace kk {

/// Leaves a JSON document beside the image that says what was backed up, and how. Replaces an existing one. Reports
/// nothing: a backup does not fail for lack of its manifest. The request's partitions, flags and set are recorded.
void WriteBackupManifest(const BackupRequest& request, const DiskLayout& layout, bool snapshotsUsed,
                         uint64_t virtualSize, const BackupPlan& plan);

}  // namespace kk
