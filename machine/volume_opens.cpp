#include "machine/volume_opens.h"

#include <algorithm>
#include <utility>

namespace machine {

Status VolumeOpens::Open(uint64_t& open)
{
    if (locker_ != 0) {
        return kAccessDenied;
    }
    mounted_ = dismounter_ == 0;
    open = nextOpen_++;
    mountOf_[open] = mounted_ ? mount_ : 0;
    return kSuccess;
}

void VolumeOpens::Close(uint64_t open)
{
    mountOf_.erase(open);
    locker_ = locker_ == open ? 0 : locker_;
    dismounter_ = dismounter_ == open ? 0 : dismounter_;
    DropShrink(open);
    ForgetEndUnlessHeld();
}

Status VolumeOpens::Lock(uint64_t open)
{
    if (!SeesFileSystem(open)) {
        return kVolumeDismounted;
    }
    const auto sharing =
        std::count_if(mountOf_.begin(), mountOf_.end(), [this](const auto& other) { return other.second == mount_; });
    if (inUseBySystem_ || locker_ != 0 || sharing > 1) {
        return kAccessDenied;
    }
    locker_ = open;
    return kSuccess;
}

Status VolumeOpens::Unlock(uint64_t open)
{
    if (locker_ != open) {
        return kNotLocked;
    }
    locker_ = 0;
    ForgetEndUnlessHeld();
    return kSuccess;
}

Status VolumeOpens::Dismount(uint64_t open)
{
    if (!SeesFileSystem(open)) {
        return kVolumeDismounted;
    }
    if (inUseBySystem_) {
        return kAccessDenied;
    }
    ++mount_;
    mounted_ = false;
    dismounter_ = open;
    shrinker_ = 0;
    return kSuccess;
}

bool VolumeOpens::SeesFileSystem(uint64_t open) const
{
    const auto found = mountOf_.find(open);
    return found != mountOf_.end() && found->second == mount_;
}

bool VolumeOpens::PrepareShrink(uint64_t open, uint64_t sectors)
{
    if (shrinker_ != 0 && shrinker_ != open) {
        return false;
    }
    shrinker_ = open;
    shrinkSectors_ = sectors;
    return true;
}

std::optional<uint64_t> VolumeOpens::PreparedShrink(uint64_t open) const
{
    return shrinker_ == open ? std::optional(shrinkSectors_) : std::nullopt;
}

bool VolumeOpens::DropShrink(uint64_t open)
{
    return shrinker_ == open && std::exchange(shrinker_, 0) != 0;
}

void VolumeOpens::ForgetEndUnlessHeld()
{
    if (locker_ == 0 && dismounter_ == 0) {
        keptEnd_.reset();
    }
}

}  // namespace machine
