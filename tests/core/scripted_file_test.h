#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "core/file_opener.h"
#include "support/machine_test.h"
#include "support/scripted_device.h"

/// A test of a DeviceFile on a device whose answers it gives. The journal begins after the open.
class ScriptedFileTest : public MachineTest {
protected:
    /// Where a transfer call began and how much it asked for.
    struct Transfer {
        uint64_t offset;
        uint64_t length;

        friend bool operator==(const Transfer&, const Transfer&) = default;
    };

    ScriptedFileTest() : device_(ScriptedDevice::AddTo(machine))
    {
        EXPECT_EQ(kk::OpenDevice(ScriptedDevice::kName, true, file_), KK_STATUS_SUCCESS);
        machine.journal.Clear();
    }

    std::vector<Transfer> Transfers(machine::CallKind kind) const
    {
        std::vector<Transfer> transfers;
        for (const machine::CallRecord& record : machine.journal.FindAll({.kind = kind})) {
            transfers.push_back({record.offset, record.length});
        }
        return transfers;
    }

    size_t CallCount() const { return machine.journal.Records().size(); }

    std::shared_ptr<ScriptedDevice> device_;
    kk::DevicePtr file_;
};
