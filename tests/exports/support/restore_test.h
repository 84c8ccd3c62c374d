#pragma once

#include <gmock/gmock.h>

#include <memory>
#include <string>
#include <vector>

#include "exports/support/disk_bytes.h"
#include "exports/support/disk_kind.h"
#include "exports/support/export_test.h"
#include "exports/support/restore_steps.h"
#include "support/pattern.h"

/// Restores from an image to disk 0 and its volumes and looks at what came of it.
class RestoreTest : public ExportTest {
protected:
    static constexpr uint64_t kTransfer = 8 * kMiB;
    /// What targets are full of, so that whatever was left out shows.
    static constexpr uint8_t kOldByte = 0xEE;

    /// The disk in the image: these partitions in the first slots, every byte of them non-zero and different from
    /// partition to partition. Its bytes may be changed until the first call of an export.
    machine::MemoryStorage& MakeImage(const DiskKind& kind, const std::vector<Place>& partitions, uint64_t size);
    machine::MemoryStorage& MakeImage(const DiskKind& kind, const machine::GptTable& table, uint64_t size);
    /// An empty one without a table.
    machine::MemoryStorage& MakeBlankImage(uint64_t size, uint32_t sectorSize = 512);
    /// Changes what is in the image.
    void PutInImage(uint64_t offset, const std::vector<uint8_t>& bytes);
    void PutZerosInImage(uint64_t offset, uint64_t length) { PutInImage(offset, std::vector<uint8_t>(length)); }
    std::vector<uint8_t> ImageBytes(uint64_t offset, uint64_t length);
    std::u16string ImagePath() const { return WindowsPath(folder / "image.vhdx"); }

    /// Disk 0, full of old bytes, in place of the one before.
    machine::Disk& AddTarget(uint64_t size, uint32_t sectorSize = 512);
    /// With a table too, its partitions in the first slots.
    machine::Disk& AddTarget(const DiskKind& kind, const std::vector<Place>& partitions, uint64_t size);
    machine::Disk& Target() const { return *machine.FindDisk(0); }
    /// The volume of the partition that begins there, as callers name it.
    std::u16string VolumeAt(uint64_t start) const { return machine.FindVolume(0, start)->DeviceName(); }
    std::vector<uint8_t> OldBytes(uint64_t length) const { return std::vector<uint8_t>(length, kOldByte); }

    // The exports; they begin with an empty journal and nothing written.
    int32_t RestorePartitions(const std::vector<uint32_t>& numbers = {}, int32_t writeTable = 0,
                              const std::u16string& target = u"\\\\.\\PhysicalDrive0");
    int32_t RestoreToFreeSpace(uint32_t number, uint64_t regionStart, uint64_t regionLength, int32_t keepSize = 0);
    int32_t RestoreToVolume(uint32_t number, const std::u16string& volume, uint32_t extend = 0);
    int32_t CloneVolume(const std::u16string& source, const std::u16string& target, uint32_t extend = 0);

    /// What the last call wrote to disk 0, by whatever way.
    std::vector<Place> written;
    std::vector<std::string> Steps() const { return RestoreSteps(machine.journal); }
    size_t StepsLike(const std::string& step) const;

    /// The partitions that the driver of disk 0 tells of, in table order.
    std::vector<Place> DriverKnows() const;
    /// Disk 0 holds the image's bytes, those of the image's `from` at `to`.
    void ExpectRestored(uint64_t from, uint64_t to, uint64_t length);
    void ExpectOld(uint64_t offset, uint64_t length);

    /// A device that tells its size as this, and 0 for a size that it does not tell.
    void PretendSize(const char* object, int64_t size);
    void Fail(machine::CallPattern pattern, uint32_t status) { machine.faults.FailFrom(std::move(pattern), 1, status); }

    void BeginCall();

    TemporaryFolder folder;

private:
    void SaveImage();

    std::unique_ptr<machine::MemoryStorage> image_;
    uint32_t imageSectorSize_ = 512;
    bool imageIsSaved_ = true;
};
