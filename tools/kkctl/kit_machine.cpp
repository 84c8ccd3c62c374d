#include "kit.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <iostream>

#include <unistd.h>

#include "counting_images.h"
#include "machine/machine.h"
#include "machine/pe_loader.h"
#include "machine/snapshot_service.h"
#include "machine/virtual_disk_service.h"
#include "machine_paths.h"

namespace kkctl {

namespace {

/// The library of the same build, which lies in a folder beside the program's.
std::string DllOfThisBuild()
{
    const std::filesystem::path program = std::filesystem::read_symlink("/proc/self/exe");
    return (program.parent_path().parent_path() / "dll" / "KestrelkitCore.dll").string();
}

int64_t HostTime()
{
    constexpr int64_t kUnitsPerSecond = 10'000'000;
    constexpr int64_t kSecondsFrom1601To1970 = 11'644'473'600;
    const auto sinceEpoch = std::chrono::system_clock::now().time_since_epoch();
    return kSecondsFrom1601To1970 * kUnitsPerSecond +
           std::chrono::duration_cast<std::chrono::nanoseconds>(sinceEpoch).count() / 100;
}

/// The shipped DLL in a simulated machine whose disks are files of the host.
class MachineKit : public Kit {
public:
    explicit MachineKit(const KitOptions& options)
    {
        machine_.SetFailureHandler(
            [](const std::string& breach) { std::cerr << "kkctl: machine: " << breach << '\n'; });
        machine_.journal.SetRecording(false);
        machine_.heap.SetFast(true);
        FollowHostTime();
        machine_.random.SetProcessWideTable(true);
        for (const std::string& disk : options.disks) {
            // A command that only reads disks cannot change one by mistake either.
            const bool isWritable = options.writesDisks && access(disk.c_str(), W_OK) == 0;
            machine_.AddDiskFile(disk, {.readOnly = !isWritable});
        }
        machine::InstallVirtualDiskService(machine_, images_);
        machine::InstallSnapshotService(machine_);
        Load(options.dll.empty() ? DllOfThisBuild() : options.dll);
    }

    bool IsSimulated() const override { return true; }

    WideString ToLibraryPath(const std::string& path) const override { return MachinePath(path); }

    uint64_t ImageBytesWritten(const std::string& path) const override
    {
        return images_->BytesWritten(std::filesystem::absolute(path).lexically_normal());
    }

private:
    /// Never back: waits move the machine's clock ahead of the host's.
    void FollowHostTime() { machine_.clock.SetTime(std::max(HostTime(), machine_.clock.Now())); }

    void Load(const std::string& file)
    {
        dll_ = std::make_unique<machine::LoadedDll>(file);
        calls_ = FindCalls(file, [this](const char* function) { return dll_->Export<void*>(function); });
    }

    machine::Machine machine_;
    std::shared_ptr<CountingImages> images_ = std::make_shared<CountingImages>([this] { FollowHostTime(); });
    std::unique_ptr<machine::LoadedDll> dll_;
};

}  // namespace

std::unique_ptr<Kit> OpenKit(const KitOptions& options)
{
    return std::make_unique<MachineKit>(options);
}

}  // namespace kkctl
