#pragma once

#include <cstdint>
#include <vector>

#include "machine/disk.h"

/// The writes that reach a disk, so that it can be put into every state in which a loss of power would have left it.
class DiskWrites {
public:
    /// Takes down what is written from now on.
    explicit DiskWrites(machine::Disk& disk);
    DiskWrites(const DiskWrites&) = delete;
    DiskWrites& operator=(const DiskWrites&) = delete;
    ~DiskWrites();

    /// Leaves the disk as it was before the first write, and takes down no more.
    void TakeBack();
    /// Lets one write reach the disk, or no more than its first bytes.
    void Redo(size_t index, uint64_t bytes = UINT64_MAX);

    size_t Count() const { return writes_.size(); }
    uint64_t Length(size_t index) const { return writes_[index].before.size(); }

private:
    struct Write {
        uint64_t offset;
        std::vector<uint8_t> before;
        std::vector<uint8_t> after;
    };

    machine::Disk& disk_;
    uint64_t observer_;
    std::vector<Write> writes_;
};
