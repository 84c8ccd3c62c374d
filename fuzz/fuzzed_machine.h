#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "machine/machine.h"

/// A file that lies in memory and is new for every input.
class MemoryFile {
public:
    MemoryFile();
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;
    ~MemoryFile();

    /// Makes the file `size` zeros.
    void Reset(uint64_t size);
    void Write(uint64_t offset, std::span<const uint8_t> bytes);

    uint64_t Size() const;
    const std::string& HostPath() const { return hostPath_; }
    std::u16string Path() const;

private:
    int descriptor_;
    std::string hostPath_;
};

/// Disk 0 of the machine that an input meets: 64 MiB with a GPT and one partition, which has a volume.
inline constexpr uint64_t kTargetBytes = 64ull << 20;
inline constexpr uint64_t kTargetPartitionStart = 1ull << 20;
inline constexpr uint64_t kTargetPartitionLength = 24ull << 20;

/// A machine with that disk and little memory. Every breach of its rules ends the program, and so does whatever is not
/// given back.
class FuzzedMachine {
public:
    FuzzedMachine();
    ~FuzzedMachine();

    machine::Machine& operator*() { return machine_; }
    machine::Machine* operator->() { return &machine_; }

private:
    machine::Machine machine_;
};

/// Has an image inspected, and restored in all three ways onto disk 0 and its volume. `choice` chooses among arguments.
/// Whoever takes more memory than a file of that size justifies ends the program.
void InspectAndRestore(FuzzedMachine& machine, const MemoryFile& image, uint8_t choice);
