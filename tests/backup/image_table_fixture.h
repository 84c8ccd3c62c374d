#pragma once

#include <string>
#include <vector>

#include "backup/image_partition_table.h"
#include "support/byte_device.h"

/// A test of the table in an image.
class ImageTableTest : public ByteDeviceTest {
protected:
    struct Step {
        uint64_t offset;
        uint64_t length;
        friend bool operator==(const Step&, const Step&) = default;
    };
    /// What a flush is among the steps.
    static constexpr Step kFlush = {UINT64_MAX, UINT64_MAX};

    /// Every write and flush that reached the device's door, failed ones included.
    std::vector<Step> Steps() const
    {
        std::vector<Step> steps;
        for (const machine::CallRecord& record : machine.journal.Records()) {
            if (record.kind == machine::CallKind::WriteFile) {
                steps.push_back({record.offset, record.length});
            } else if (record.kind == machine::CallKind::Flush) {
                steps.push_back(kFlush);
            }
        }
        return steps;
    }
};
