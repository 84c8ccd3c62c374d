#pragma once

#include <map>
#include <vector>

#include "exports/support/disk_kind.h"
#include "machine/disk.h"

/// All bytes of a disk at one moment.
class DiskBytes {
public:
    explicit DiskBytes(machine::Disk& disk);

    /// Nothing has changed since, or nothing but what lies in these places.
    void ExpectUnchanged() const { ExpectUnchangedBut({}); }
    void ExpectUnchangedBut(const std::vector<Place>& places) const;
    /// Whether anything in there has changed since.
    bool HasChanged(const Place& place) const;

private:
    /// The bytes of that time; pieces that are not kept were all zero.
    std::vector<uint8_t> Before(uint64_t offset, uint64_t length) const;

    machine::Disk& disk_;
    std::map<uint64_t, std::vector<uint8_t>> pieces_;
};

/// Where the sectors of a table of the usual size lie. Only a GPT has all of them.
struct TableSectors {
    Place primaryArray;
    Place primaryHeader;  // sector 0 of an MBR disk
    Place backupArray;
    Place backupHeader;

    TableSectors(const DiskKind& kind, uint64_t diskSize);
};

/// The bytes that differ after an edit of the entry in `slot`: the entry and, on a GPT, two checksums, in both copies.
std::vector<Place> BytesOfEntry(const DiskKind& kind, uint64_t diskSize, uint32_t slot);
