#include "fuzzed_machine.h"

#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <system_error>
#include <vector>

#include "kestrelkit/kestrelkit.h"

namespace {

[[noreturn]] void EndWith(const std::string& what)
{
    std::fprintf(stderr, "%s\n", what.c_str());
    std::abort();
}

/// Ends the program unless a status is a failure or one of the two that mean "done".
void ExpectSensible(const char* call, KK_STATUS status)
{
    if (status > 0) {
        EndWith(std::string(call) + " ended with a status that is neither success nor failure");
    }
}

/// Ends the program when the memory in use was ever above what a file and one buffer of a copy need.
void ExpectThrift(FuzzedMachine& machine, const MemoryFile& image)
{
    constexpr uint64_t copyBuffer = 8ull << 20;
    constexpr uint64_t listsAndTables = 4ull << 20;
    if (machine->heap.PeakBytes() > image.Size() + copyBuffer + listsAndTables) {
        EndWith("an image of " + std::to_string(image.Size()) + " bytes cost " +
                std::to_string(machine->heap.PeakBytes()) + " bytes of memory");
    }
}

/// What an image claims must agree between two looks at it.
void Inspect(const std::u16string& path)
{
    ImageInfoRecord info = {};
    uint32_t count = 0;
    const KK_STATUS first = KkInspectImage(path.c_str(), &info, nullptr, 0, &count);
    ExpectSensible("KkInspectImage", first);
    std::vector<ImagePartitionRecord> records(count);
    uint32_t again = 0;
    const KK_STATUS second = KkInspectImage(path.c_str(), &info, records.data(), count, &again);
    if (first != second || count != again || (first == KK_STATUS_SUCCESS && info.partitionCount != count)) {
        EndWith("two inspections of one image differ");
    }
}

}  // namespace

MemoryFile::MemoryFile()
    : descriptor_(memfd_create("image", 0)),
      hostPath_("/proc/" + std::to_string(getpid()) + "/fd/" + std::to_string(descriptor_))
{
    if (descriptor_ < 0) {
        throw std::system_error(errno, std::generic_category(), "memfd_create");
    }
}

MemoryFile::~MemoryFile()
{
    close(descriptor_);
}

void MemoryFile::Reset(uint64_t size)
{
    if (ftruncate(descriptor_, 0) != 0 || ftruncate(descriptor_, static_cast<off_t>(size)) != 0) {
        throw std::system_error(errno, std::generic_category(), "ftruncate");
    }
}

void MemoryFile::Write(uint64_t offset, std::span<const uint8_t> bytes)
{
    if (pwrite(descriptor_, bytes.data(), bytes.size(), static_cast<off_t>(offset)) !=
        static_cast<ssize_t>(bytes.size())) {
        throw std::system_error(errno, std::generic_category(), "pwrite");
    }
}

uint64_t MemoryFile::Size() const
{
    struct stat status = {};
    return fstat(descriptor_, &status) == 0 ? static_cast<uint64_t>(status.st_size) : 0;
}

std::u16string MemoryFile::Path() const
{
    return machine::HostDrives::WindowsPath(hostPath_);
}

FuzzedMachine::FuzzedMachine()
{
    // Enough for a copy's buffer and for tables of an honest size.
    constexpr uint64_t memory = 64ull << 20;
    machine_.SetFailureHandler(EndWith);
    machine_.journal.SetRecording(false);
    machine_.heap.SetFast(true);
    machine_.heap.SetLimit(memory);
    machine_.AddDisk(kTargetBytes)
        .Gpt({.partitions = {{.start = kTargetPartitionStart, .length = kTargetPartitionLength}}});
}

FuzzedMachine::~FuzzedMachine()
{
    for (const std::string& imbalance : machine_.Imbalances()) {
        EndWith("not given back: " + imbalance);
    }
}

void InspectAndRestore(FuzzedMachine& machine, const MemoryFile& image, uint8_t choice)
{
    const std::u16string path = image.Path();
    machine->heap.ResetCounters();
    Inspect(path);
    const uint32_t number = 1 + choice % 4;
    ExpectSensible("KkRestoreToVolume",
                   KkRestoreToVolume(path.c_str(), number, u"\\Device\\HarddiskVolume1", choice & 0x10));
    constexpr uint64_t freeStart = kTargetPartitionStart + kTargetPartitionLength;
    ExpectSensible("KkRestoreToFreeSpace",
                   KkRestoreToFreeSpace(path.c_str(), number, 0, freeStart, kTargetBytes - freeStart, choice & 0x20));
    const uint32_t numbers[] = {number, 1u + choice / 64};
    ExpectSensible("KkRestorePartitions", KkRestorePartitions(path.c_str(), u"\\\\.\\PhysicalDrive0", numbers,
                                                              (choice & 0x8) != 0 ? 2 : 0, choice & 0x4));
    ExpectThrift(machine, image);
}
