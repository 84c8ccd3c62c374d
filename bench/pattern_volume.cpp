#include "pattern_volume.h"

#include <stdexcept>

namespace bench {

namespace {

constexpr uint64_t kPartitionStart = 1 << 20;

}  // namespace

PatternVolume::PatternVolume(const Settings& settings, std::shared_ptr<const BitmapPattern> pattern,
                             machine::ImportResolver resolver)
    : image_(settings.folder / "pattern.vhdx"), images_(std::make_shared<machine::MemoryVirtualDisks>()),
      library_(settings.dll, images_, std::move(resolver))
{
    machine::Machine& nt = library_.Nt();
    const uint64_t length = pattern->clusterCount * kClusterBytes;
    nt.AddDisk(length + 2 * kPartitionStart).Gpt({.partitions = {{.start = kPartitionStart, .length = length}}});
    ScriptBitmap(*nt.FindVolume(0, kPartitionStart), std::move(pattern));
    nt.faults.FailFrom({.kind = machine::CallKind::ReadFile}, 1, static_cast<uint32_t>(machine::kIoDeviceError));
}

void PatternVolume::Run()
{
    images_->Remove(image_);
    const BackupRun run = library_.Backup(image_, true);
    std::filesystem::remove(image_.string() + ".json");  // a volume without clusters in use is backed up in full
    if (run.status != 0 && run.status != machine::kIoDeviceError) {
        throw std::runtime_error("the backup ended with " + StatusText(run.status));
    }
}

}  // namespace bench
