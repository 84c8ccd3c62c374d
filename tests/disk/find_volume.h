#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "disk/volume_controls.h"
#include "disk/volume_lookup.h"
#include "support/machine_test.h"

/// A test of FindVolumeForPartition. What it does not write stays recognisable.
class FindVolumeTest : public MachineTest {
protected:
    static constexpr uint32_t kUntouched = 0xABABABAB;

    /// Disk 0 with volumes at 1, 10 and 20 MiB, numbered 1 to 3.
    void AddDiskWithThreeVolumes()
    {
        machine.AddDisk(64 * kMiB).Gpt({.partitions = {{.start = 1 * kMiB, .length = 8 * kMiB},
                                                       {.start = 10 * kMiB, .length = 8 * kMiB},
                                                       {.start = 20 * kMiB, .length = 8 * kMiB}}});
    }

    bool Find(uint32_t disk, uint64_t start)
    {
        path_.assign(64, u'#');
        clusterSize_ = kUntouched;
        machine.journal.Clear();
        return kk::FindVolumeForPartition(disk, start, path_.data(), path_.size(), &clusterSize_);
    }

    std::u16string Path() const { return path_.substr(0, path_.find(u'\0')); }

    void ExpectUntouched() const
    {
        EXPECT_EQ(path_, std::u16string(64, u'#'));
        EXPECT_EQ(clusterSize_, kUntouched);
    }

    std::vector<machine::CallRecord> Opens() const
    {
        return machine.journal.FindAll({.kind = machine::CallKind::CreateFile});
    }

    std::u16string path_;
    uint32_t clusterSize_ = kUntouched;
};
