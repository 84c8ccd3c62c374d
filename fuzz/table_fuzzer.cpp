// Feeds partition tables to the library: the first byte of an input chooses arguments and the sector size, the rest is
// the beginning of the disk in a sound image. The same bytes then meet the calls that edit tables, as the beginning of
// a real disk.

#include <cstdlib>
#include <filesystem>
#include <vector>

#include "fuzzed_machine.h"
#include "kestrelkit/kestrelkit.h"
#include "support/vhdx_builder.h"

namespace {

constexpr uint64_t kImageDiskBytes = 48ull << 20;

void Restore(std::span<const uint8_t> table, uint32_t sectorSize, uint8_t choice)
{
    static MemoryFile file;
    file.Reset(0);
    VhdxBuilder(kImageDiskBytes)
        .SectorSize(sectorSize)
        .BlockSize(1 << 20)
        .Data(0, {table.begin(), table.end()})
        .Data(kImageDiskBytes / 2, {1, 2, 3})
        .Save(file.HostPath());
    FuzzedMachine machine;
    InspectAndRestore(machine, file, choice);
}

void Edit(std::span<const uint8_t> table, uint32_t sectorSize, uint8_t choice)
{
    constexpr uint64_t mib = 1 << 20;
    FuzzedMachine machine;
    machine::Disk& disk = machine->AddDisk(kTargetBytes, {.sectorSize = sectorSize});
    disk.WriteBytes(0, table);
    disk.Rescan();
    uint64_t start = 0;
    (void)KkCreatePartition(disk.Number(), choice * mib / 4, kTargetBytes, (choice & 1) != 0 ? 2 * mib : 0, &start);
    (void)KkExtendPartition(disk.Number(), start, 0);
    (void)KkShrinkPartition(disk.Number(), mib, mib);
    (void)KkDeletePartition(disk.Number(), (choice & 2) != 0 ? start : mib);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    constexpr size_t largestTable = 64 << 10;
    if (size < 2 || size > largestTable) {
        return 0;
    }
    const uint8_t choice = data[0];
    const uint32_t sectorSize = (choice & 0x80) != 0 ? 4096 : 512;
    const std::span table(data + 1, size - 1);
    Restore(table, sectorSize, choice);
    Edit(table, sectorSize, choice);
    return 0;
}
