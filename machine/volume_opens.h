#pragma once

#include <cstdint>
#include <map>
#include <optional>

#include "machine/nt_values.h"

namespace machine {

/// Who has a volume open, who has locked or dismounted it, and therefore who may do what. Opens are told apart by
/// numbers from 1; 0 is nobody.
class VolumeOpens {
public:
    /// Mounts the volume unless whoever dismounted it still has it open.
    Status Open(uint64_t& open);
    /// Ends the lock, completes the dismount and drops the announced shrink of this open.
    void Close(uint64_t open);

    Status Lock(uint64_t open);
    Status Unlock(uint64_t open);
    Status Dismount(uint64_t open);

    /// Whether the mount that this open belongs to is alive.
    bool SeesFileSystem(uint64_t open) const;
    /// Whether bytes still move: on a live mount, or past it for whoever dismounted it.
    bool MayTransfer(uint64_t open) const { return SeesFileSystem(open) || open == dismounter_; }
    /// Whether this open may overwrite the sectors of a file system.
    bool MayWriteDirectly(uint64_t open) const { return open == locker_ || open == dismounter_; }
    /// Whether a file system in here is mounted and nobody has it to himself.
    bool IsGuarded() const { return mounted_ && locker_ == 0; }

    /// System and paging volumes are neither locked nor dismounted.
    void SetInUseBySystem(bool inUse) { inUseBySystem_ = inUse; }

    /// Announces a shrink to so many sectors, in place of an earlier one. False when another open has announced one.
    bool PrepareShrink(uint64_t open, uint64_t sectors);
    std::optional<uint64_t> PreparedShrink(uint64_t open) const;
    /// False when this open has announced none.
    bool DropShrink(uint64_t open);

    /// Where transfers end for as long as somebody has the volume to himself: the file system knows its size from its
    /// mount, whatever is written over it.
    void KeepEnd(uint64_t bytes) { keptEnd_ = bytes; }
    std::optional<uint64_t> KeptEnd() const { return keptEnd_; }

private:
    void ForgetEndUnlessHeld();

    std::map<uint64_t, uint64_t> mountOf_;  // by open; 0 for opens of a dismounted volume
    uint64_t nextOpen_ = 1;
    uint64_t mount_ = 1;  // the one that opens belong to from now on
    bool mounted_ = true;
    bool inUseBySystem_ = false;
    uint64_t locker_ = 0;
    uint64_t dismounter_ = 0;
    std::optional<uint64_t> keptEnd_;
    uint64_t shrinker_ = 0;
    uint64_t shrinkSectors_ = 0;
};

}  // namespace machine
