// Makes the same few calls of the library, linked to this program, on the same small disks every time. Run under
// callgrind it leaves one file of counts for each call, named after it; `bench/instructions` adds them up.

#include <filesystem>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "bitmap_patterns.h"
#include "counted_call.h"
#include "growing_calls.h"
#include "kestrelkit/kestrelkit.h"
#include "machine/host_drives.h"
#include "machine/host_tools.h"
#include "machine/machine.h"
#include "machine/memory_virtual_disks.h"
#include "machine/text.h"
#include "machine/virtual_disk_service.h"

namespace {

using bench::Count;

constexpr uint64_t kMiB = 1 << 20;
constexpr uint64_t kDiskBytes = 136 * kMiB;
constexpr uint64_t kVolumeStart = kMiB;
constexpr uint64_t kVolumeBytes = 128 * kMiB;
constexpr uint64_t kFreeStart = 130 * kMiB;
constexpr uint64_t kFreeBytes = 4 * kMiB;

/// Disk 0, with a volume that has runs of clusters in use, as after years, and data in those alone.
void AddDiskInUse(machine::Machine& nt)
{
    machine::Disk& disk = nt.AddDisk(kDiskBytes);
    disk.Gpt({.partitions = {{.start = kVolumeStart, .length = kVolumeBytes}}});
    const bench::BitmapPattern pattern = bench::ClusteredPattern(kVolumeBytes / bench::kClusterBytes);
    const std::vector<uint8_t> data(bench::kClusterBytes, 0xD7);
    // Nothing in the second half, so that there are chunks of zeros.
    for (uint64_t cluster = 0; cluster < pattern.clusterCount / 2; ++cluster) {
        if ((pattern.bytes[cluster / 8] >> (cluster % 8) & 1) != 0) {
            disk.WriteBytes(kVolumeStart + cluster * bench::kClusterBytes, data);
        }
    }
    bench::ScriptBitmap(*nt.FindVolume(0, kVolumeStart), std::make_shared<const bench::BitmapPattern>(pattern));
}

void CountAll(const std::filesystem::path& folder)
{
    machine::Machine nt;
    nt.heap.SetFast(true);
    machine::InstallVirtualDiskService(nt, std::make_shared<machine::MemoryVirtualDisks>());
    AddDiskInUse(nt);
    nt.AddDisk(kDiskBytes);

    const std::filesystem::path raw = folder / "disk.raw";
    const std::filesystem::path vhdx = folder / "disk.vhdx";
    nt.FindDisk(0)->ExportFile(0, kDiskBytes, raw.string());
    machine::RunToolOrThrow({"qemu-img", "convert", "-q", "-f", "raw", "-O", "vhdx", raw.string(), vhdx.string()});
    const std::u16string image = machine::HostDrives::WindowsPath(vhdx.string());
    const std::u16string whole = machine::HostDrives::WindowsPath((folder / "whole.vhdx").string());
    const std::u16string used = machine::HostDrives::WindowsPath((folder / "used.vhdx").string());
    const std::u16string volume = nt.FindVolume(0, kVolumeStart)->DeviceName();
    BackupResult result = {};

    Count("list", [&] {
        uint32_t count = 0;
        return KkListPartitions(0, nullptr, 0, &count);
    });
    Count("whole-backup", [&] { return KkBackup(0, whole.c_str(), nullptr, 0, 0, 0, 0, "counted", 0, 1, 0, &result); });
    Count("used-blocks-backup",
          [&] { return KkBackup(0, used.c_str(), nullptr, 0, 1, 0, 0, "counted", 0, 1, 0, &result); });
    Count("inspect", [&] {
        ImageInfoRecord info = {};
        uint32_t count = 0;
        return KkInspectImage(image.c_str(), &info, nullptr, 0, &count);
    });
    Count("restore", [&] { return KkRestorePartitions(image.c_str(), u"\\\\.\\PhysicalDrive1", nullptr, 0, 1); });
    nt.FindDisk(1)->Rescan();
    const std::u16string target = nt.FindVolume(1, kVolumeStart)->DeviceName();
    Count("clone", [&] { return KkCloneVolume(volume.c_str(), target.c_str(), 0); });
    Count("create-partition", [&] {
        uint64_t start = 0;
        return KkCreatePartition(0, kFreeStart, kFreeBytes, kFreeBytes, &start);
    });
    Count("delete-partition", [&] { return KkDeletePartition(0, kFreeStart); });
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::cerr << "usage: kk_counted_run FOLDER\n";
        return 2;
    }
    try {
        CountAll(argv[1]);
        bench::CountGrowingCalls(argv[1]);
    } catch (const std::exception& error) {
        std::cerr << "kk_counted_run: " << error.what() << '\n';
        return 1;
    }
    return 0;
}
