#pragma once

#include <gmock/gmock.h>

#include <vector>

#include "disk/layout_answer.h"
#include "exports/support/disk_bytes.h"
#include "exports/support/disk_kind.h"
#include "exports/support/edit_steps.h"
#include "exports/support/export_test.h"
#include "exports/support/table_on_disk.h"

/// Changes the partitions of disk 0 and looks at what came of it.
class PartitionEditTest : public ExportTest {
protected:
    static constexpr uint64_t kDiskSize = 64 * kMiB;
    static constexpr uint64_t kNotWritten = 0xEEEEEEEEEEEEEEEE;

    /// Disk 0, in place of the one before; its partitions take the first slots.
    machine::Disk& AddDisk(const DiskKind& kind, const std::vector<Place>& partitions, uint64_t size = kDiskSize);
    /// The same without a table.
    machine::Disk& AddBareDisk(uint64_t size = kDiskSize, uint32_t sectorSize = 512);
    machine::Disk& TheDisk() const { return *machine.FindDisk(0); }

    // The exports, with disk 0; they begin with an empty journal and nothing written.
    int32_t Create(uint64_t regionStart, uint64_t regionLength, uint64_t size = 0);
    int32_t Delete(uint64_t start);
    int32_t Extend(uint64_t start, uint64_t newSize);
    int32_t Shrink(uint64_t start, uint64_t newSize);
    /// Where the last creation put its partition.
    uint64_t created = kNotWritten;
    /// What the last call wrote to the disk, by whatever way.
    std::vector<Place> written;

    /// The partitions that the disk's driver tells of, in table order.
    std::vector<Place> Partitions() const;
    std::vector<std::string> Steps() const { return EditSteps(machine.journal); }

    // Lies of disk 0, for as long as the machine lives.
    void PretendLayout(const LayoutAnswer& layout);
    void PretendGeometry(uint64_t diskSize, uint32_t sectorSize);
    /// Has requests of a kind fail.
    void Refuse(uint32_t code, uint32_t status) { machine.faults.FailFrom({.code = code}, 1, status); }

    void BeginCall();

    /// What the only request of a kind sent, as numbers of 64 bits.
    std::vector<uint64_t> SentWith(uint32_t code) const;
};
