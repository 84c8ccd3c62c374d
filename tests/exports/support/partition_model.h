#pragma once

#include <optional>
#include <vector>

#include "exports/support/disk_kind.h"
#include "kestrelkit/kestrelkit.h"

/// A disk's table as a list of slots, and what each edit makes of it: a second opinion in a few lines.
class PartitionModel {
public:
    PartitionModel(const DiskKind& kind, uint64_t diskSize)
        : kind_(kind), diskSize_(diskSize), slots_(kind.table == TableKind::Gpt ? 128 : 4)
    {
    }

    /// What is known of a volume when its partition is to shrink.
    struct Volume {
        bool found = true;
        uint64_t fileSystemBytes = 0;  // 0 without a file system, which then is as long as the partition
    };

    // Each gives the status that the export owes and, when that is 0, changes the table.
    int32_t Create(const Place& region, uint64_t size, uint64_t& start);
    int32_t Delete(uint64_t start);
    int32_t Extend(uint64_t start, uint64_t newSize);
    int32_t Shrink(uint64_t start, uint64_t newSize, const Volume& volume);

    /// Up to the last used one.
    std::vector<std::optional<Place>> Slots() const;
    /// In slot order.
    std::vector<Place> Partitions() const;
    /// The free stretches between partitions, from the first MiB to the end that partitions may reach.
    std::vector<Place> Gaps() const;
    uint64_t UsableEnd() const;

private:
    std::optional<Place>* Find(uint64_t start);

    DiskKind kind_;
    uint64_t diskSize_;
    std::vector<std::optional<Place>> slots_;
};
