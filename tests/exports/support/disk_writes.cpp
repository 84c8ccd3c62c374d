#include "exports/support/disk_writes.h"

#include <algorithm>
#include <span>

DiskWrites::DiskWrites(machine::Disk& disk)
    : disk_(disk), observer_(disk.AddWriteObserver([this](uint64_t offset, uint64_t length) {
          writes_.push_back({.offset = offset, .before = disk_.ReadBytes(offset, length), .after = {}});
      }))
{
}

DiskWrites::~DiskWrites()
{
    disk_.RemoveWriteObserver(observer_);
}

void DiskWrites::TakeBack()
{
    disk_.RemoveWriteObserver(observer_);
    for (auto write = writes_.rbegin(); write != writes_.rend(); ++write) {
        if (write->after.empty()) {
            write->after = disk_.ReadBytes(write->offset, write->before.size());
        }
        disk_.WriteBytes(write->offset, write->before);
    }
}

void DiskWrites::Redo(size_t index, uint64_t bytes)
{
    const Write& write = writes_[index];
    disk_.WriteBytes(write.offset, std::span(write.after).first(std::min<uint64_t>(bytes, write.after.size())));
}
