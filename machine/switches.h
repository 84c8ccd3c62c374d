#pragma once

#include <cstdint>

namespace machine {

/// Behaviour of real systems that callers often do not expect. All off at first; `Machine::Strict` turns them on.
struct Switches {
    /// Reads of an NTFS volume end at the file system's last sector, which is before the partition's.
    bool ntfsBoundary = false;

    /// Sectors under a recognised file system are not writable through volume or disk handles, unless the volume is
    /// locked or dismounted; through volume handles, only by whoever did that.
    bool mountedWriteProtection = false;

    /// Shrinking a file system is refused while clusters behind its new end are in use; otherwise they are moved.
    bool shrinkMovesNothing = false;

    /// Volumes of a partition that has just appeared arrive only when the machine has received so many further calls.
    uint64_t volumeArrivalDelay = 0;

    /// Virtual disks below 3 MiB are refused.
    bool minimumVirtualDiskSize = false;

    /// Virtual disks of an unstated type are known by their file's extension: .vhd, .vhdx and .iso alone. Not in the
    /// strict profile, since nobody knows whether any real system does this.
    bool virtualDisksByExtension = false;

    /// A disk whose GPT disk identifier is already online arrives offline: without volumes.
    bool diskIdentityCollisions = false;

    /// Clusters to whose multiple the first cluster of a bitmap answer is rounded down; real systems use 8 or 32768.
    uint64_t bitmapRoundingUnit = 8;
};

}  // namespace machine
