#include "machine/volume_opens.h"

#include <algorithm>

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
    return kSuccess;
}

bool VolumeOpens::SeesFileSystem(uint64_t open) const
{
    const auto found = mountOf_.find(open);
    return found != mountOf_.end() && found->second == mount_;
}

void VolumeOpens::ForgetEndUnlessHeld()
{
    if (locker_ == 0 && dismounter_ == 0) {
        keptEnd_.reset();
    }
}

}  // namespace machine
