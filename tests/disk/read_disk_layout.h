#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <vector>

#include "disk/disk_layout.h"
#include "disk/layout_answer.h"
#include "support/machine_test.h"

/// A test of ReadDiskLayout on one disk, whose answers it may replace.
class ReadDiskLayoutTest : public MachineTest {
protected:
    using Answer = std::function<machine::ControlAnswer(const machine::ControlRequest&)>;

    machine::Disk& AddDisk() { return machine.AddDisk(64 * kMiB); }

    KK_STATUS Read() { return kk::ReadDiskLayout(0, layout_); }

    void OnLayout(Answer answer) { Replace(kk::kIoctlDiskGetDriveLayoutEx, std::move(answer)); }
    void OnGeometry(Answer answer) { Replace(kk::kIoctlDiskGetDriveGeometryEx, std::move(answer)); }

    /// Every layout request gets these bytes.
    void AnswerLayout(const std::vector<uint8_t>& bytes)
    {
        OnLayout([bytes](const machine::ControlRequest&) { return machine::ControlAnswer{.output = bytes}; });
    }

    std::vector<machine::CallRecord> LayoutCalls() const
    {
        return machine.journal.FindAll(
            {.kind = machine::CallKind::DeviceControl, .code = kk::kIoctlDiskGetDriveLayoutEx});
    }

    std::vector<uint64_t> LayoutLengths() const
    {
        std::vector<uint64_t> lengths;
        for (const machine::CallRecord& record : LayoutCalls()) {
            lengths.push_back(record.length);
        }
        return lengths;
    }

    std::vector<uint64_t> Starts() const
    {
        std::vector<uint64_t> starts;
        for (const kk::PartitionEntry& partition : layout_.partitions) {
            starts.push_back(partition.start);
        }
        return starts;
    }

    kk::DiskLayout layout_;

private:
    void Replace(uint32_t code, Answer answer)
    {
        machine.OnControl({.code = code}, [answer = std::move(answer)](const machine::CallRecord&,
                                                                       const machine::ControlRequest& request) {
            return std::optional(answer(request));
        });
    }
};
