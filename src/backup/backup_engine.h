#pragma once

#include "backup/backup_plan.h"

namespace kk {

/// Backs a disk up; see KkBackup. `result` may be null.
[[nodiscard]] KK_STATUS RunBackup(const BackupRequest& request, BackupResult* result);

}  // namespace kk
