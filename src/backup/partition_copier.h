#pragma once

#include <cstdint>

#include "backup/backup_plan.h"
#include "backup/snapshot_set.h"
#include "core/device_file.h"
#include "core/transfer.h"

namespace kk {

/// Copies partitions into the image's disk, each from the best source there is, and counts what it does.
class PartitionCopier {
public:
    /// All arguments must outlive the object. `snapshots` is null when none were taken. `buffer` holds kTransferBytes.
    PartitionCopier(DeviceFile& disk, DeviceFile& target, const SnapshotSet* snapshots, uint8_t* buffer,
                    BackupResult& result)
        : disk_(disk), target_(target), snapshots_(snapshots), buffer_(buffer), result_(result)
    {
    }

    /// Copies one partition. Fails with the status of the first read or write that does; there is no second try.
    [[nodiscard]] KK_STATUS Copy(const BackupPlanEntry& entry);

private:
    // These two leave `copied` false when the volume cannot serve, which is no failure.
    [[nodiscard]] KK_STATUS CopyFromVolume(const BackupPlanEntry& entry, const char16_t* path, bool snapshot,
                                           bool& copied);
    [[nodiscard]] KK_STATUS CopyUsedBlocks(const BackupPlanEntry& entry, const char16_t* path, DeviceFile& volume,
                                           bool& copied);
    [[nodiscard]] KK_STATUS CopyWhole(const BackupPlanEntry& entry, DeviceFile& volume);
    [[nodiscard]] KK_STATUS CopyRaw(const BackupPlanEntry& entry);
    [[nodiscard]] KK_STATUS CopyRange(DeviceFile& source, uint64_t from, uint64_t to, uint64_t length);

    DeviceFile& disk_;
    DeviceFile& target_;
    const SnapshotSet* snapshots_;
    uint8_t* buffer_;
    BackupResult& result_;
};

}  // namespace kk
