#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "machine/host_tools.h"
#include "machine/layout_parser.h"
#include "machine/nt_values.h"
#include "machine/storage.h"
#include "machine/table_builder.h"

namespace machine {

class Machine;

struct DiskOptions {
    uint32_t sectorSize = 512;
    std::optional<uint32_t> number = std::nullopt;  // the lowest free one unless given
    bool readOnly = false;
    bool noDriveLetters = false;  // its volumes get none by themselves
};

/// Ways in which a disk may deviate from the well-behaved one.
struct DiskBehaviour {
    bool geometryFails = false;
    bool reportsZeroBytesPerSector = false;
    bool noMedia = false;
    bool readOnly = false;
    uint32_t layoutFailures = 0;  // so many layout requests fail first
    Status layoutFailure = kIoDeviceError;
};

/// A physical disk: bytes, and the layout that the driver read from them some time ago.
class Disk {
public:
    using WriteObserver = std::function<void(uint64_t offset, uint64_t length)>;

    Disk(Machine& machine, uint32_t number, std::unique_ptr<Storage> storage, const DiskOptions& options);

    uint32_t Number() const { return number_; }
    uint64_t Size() const { return size_; }
    uint32_t SectorSize() const { return sectorSize_; }
    bool GetsDriveLetters() const { return getsDriveLetters_; }
    DiskBehaviour behaviour;

    /// The driver's own path to the medium: whole sectors inside the disk, or a status.
    Status Read(uint64_t offset, std::span<uint8_t> into);
    Status Write(uint64_t offset, std::span<const uint8_t> from);
    bool Flush();
    /// The bytes themselves, at any offset; false past the end or without a medium.
    bool ReadRaw(uint64_t offset, std::span<uint8_t> into);

    /// What the driver answers. Stays as it is when the table's bytes change, until Rescan.
    const Layout& CachedLayout() const { return layout_; }
    /// Reads the table again; volumes go and come. What IOCTL_DISK_UPDATE_PROPERTIES does. A partition that is still
    /// there keeps its number, a new one gets the lowest that is free.
    Disk& Rescan();
    /// Changes the length of a partition in the table, in the driver's layout and of the live volume. What
    /// IOCTL_DISK_GROW_PARTITION does.
    Status GrowPartition(uint32_t number, int64_t bytes);
    /// The number that the system gives the partition at `start`, from now on. Normally 1 and up in table order.
    Disk& SetPartitionNumber(uint64_t start, uint32_t number);

    // For tests: past the driver's rules, at any offset.
    std::vector<uint8_t> ReadBytes(uint64_t offset, uint64_t length);
    Disk& WriteBytes(uint64_t offset, std::span<const uint8_t> bytes);
    Disk& FlipBit(uint64_t offset, uint32_t bit = 0);

    // These write the table and rescan.
    Disk& Gpt(const GptTable& table);
    Disk& Mbr(const MbrTable& table);

    Disk& Format(uint64_t start, uint64_t length, FileSystem fileSystem, const FormatOptions& options = {});
    Disk& ImportFile(uint64_t offset, const std::string& hostPath);
    Disk& ExportFile(uint64_t offset, uint64_t length, const std::string& hostPath);

    /// Called before any write reaches the bytes, for a disk of any kind of writer. Returns a token for removal.
    uint64_t AddWriteObserver(WriteObserver observer);
    void RemoveWriteObserver(uint64_t token);

    bool IsPresent() const { return storage_ != nullptr; }
    /// The disk was taken out of the machine: lets go of the storage. Open handles fail from now on.
    void Remove() { storage_.reset(); }

private:
    class ObservedStorage;

    void NumberPartitions(const Layout& before);

    Machine& machine_;
    uint32_t number_;
    uint32_t sectorSize_;
    bool getsDriveLetters_;
    uint64_t size_;
    std::unique_ptr<Storage> storage_;
    Layout layout_;
    std::map<uint64_t, uint32_t> partitionNumbers_;  // by start
    std::map<uint64_t, WriteObserver> observers_;
    uint64_t nextObserver_ = 1;
};

}  // namespace machine
