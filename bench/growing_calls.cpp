#include "growing_calls.h"

#include <memory>
#include <vector>

#include "bitmap_patterns.h"
#include "counted_call.h"
#include "machine/host_drives.h"
#include "machine/host_tools.h"
#include "machine/machine.h"
#include "machine/memory_virtual_disks.h"
#include "machine/virtual_disk_service.h"

namespace bench {

namespace {

constexpr uint64_t kMiB = 1 << 20;
constexpr uint32_t kSmallTable = 512;  // entries
constexpr uint64_t kSmallVolume = 16 * kMiB;

std::string Name(const char* call, uint32_t times)
{
    return std::string(call) + "-x" + std::to_string(times);
}

/// A GPT as long as its partitions need, each of which is a MiB long, and space behind them.
machine::GptTable FullTable(uint32_t entries)
{
    machine::GptTable table = {.entryCount = entries + 128};
    for (uint32_t i = 0; i < entries; ++i) {
        table.partitions.push_back({.start = (i + 1) * kMiB, .length = kMiB});
    }
    return table;
}

/// The edit computes the checksums of the whole table, the inspection reads every entry.
void CountTables(const std::filesystem::path& folder, uint32_t times)
{
    const uint32_t entries = kSmallTable * times;
    const uint64_t end = (entries + 1) * kMiB;
    machine::Machine nt;
    nt.heap.SetFast(true);
    nt.AddDisk(end + 8 * kMiB).Gpt(FullTable(entries));

    const std::filesystem::path raw = folder / "table.raw";
    const std::filesystem::path vhdx = folder / "table.vhdx";
    nt.FindDisk(0)->ExportFile(0, end + 8 * kMiB, raw.string());
    machine::RunToolOrThrow({"qemu-img", "convert", "-q", "-f", "raw", "-O", "vhdx", raw.string(), vhdx.string()});
    const std::u16string image = machine::HostDrives::WindowsPath(vhdx.string());

    Count(Name("inspect", times), [&] {
        ImageInfoRecord info = {};
        std::vector<ImagePartitionRecord> records(entries);
        uint32_t count = 0;
        return KkInspectImage(image.c_str(), &info, records.data(), entries, &count);
    });
    Count(Name("create-partition", times), [&] {
        uint64_t start = 0;
        return KkCreatePartition(0, end, 4 * kMiB, 4 * kMiB, &start);
    });
}

/// Every other cluster is in use, which makes as many runs as there can be.
void CountRuns(const std::filesystem::path& folder, uint32_t times)
{
    const uint64_t length = kSmallVolume * times;
    machine::Machine nt;
    nt.heap.SetFast(true);
    machine::InstallVirtualDiskService(nt, std::make_shared<machine::MemoryVirtualDisks>());
    nt.AddDisk(length + 2 * kMiB).Gpt({.partitions = {{.start = kMiB, .length = length}}});
    ScriptBitmap(*nt.FindVolume(0, kMiB),
                 std::make_shared<const BitmapPattern>(AlternatingPattern(length / kClusterBytes)));
    const std::u16string image =
        machine::HostDrives::WindowsPath((folder / ("runs" + std::to_string(times) + ".vhdx")).string());

    BackupResult result = {};
    Count(Name("used-blocks-backup", times),
          [&] { return KkBackup(0, image.c_str(), nullptr, 0, 1, 0, 0, "counted", 0, 1, 0, &result); });
}

}  // namespace

void CountGrowingCalls(const std::filesystem::path& folder)
{
    for (const uint32_t times : {1u, 2u}) {
        CountTables(folder, times);
        CountRuns(folder, times);
    }
}

}  // namespace bench
