#pragma once

#include <memory>
#include <string>
#include <vector>

#include "backup/image_partition_table.h"
#include "core/file_opener.h"
#include "machine/storage.h"
#include "support/machine_test.h"
#include "support/scripted_device.h"

/// A test of the table in an image: a device that takes any bytes at any offset, and remembers what it was told to do.
class ImageTableTest : public MachineTest {
protected:
    struct Step {
        uint64_t offset;
        uint64_t length;
        friend bool operator==(const Step&, const Step&) = default;
    };
    /// What a flush is among the steps.
    static constexpr Step kFlush = {UINT64_MAX, UINT64_MAX};

    ImageTableTest()
    {
        device->write = [this](uint64_t offset, std::span<const uint8_t> from) -> machine::IoResult {
            if (storage == nullptr || !storage->Write(offset, from)) {
                return {machine::kNonexistentSector, 0};
            }
            return {machine::kSuccess, from.size()};
        };
        EXPECT_EQ(kk::OpenDevice(ScriptedDevice::kName, true, target), 0);
        machine.journal.Clear();
        machine.heap.ResetCounters();
    }

    /// Gives the device bytes that are all 0xEE, so that nothing passes for zero by chance.
    void UseMemory(uint64_t size)
    {
        storage = std::make_unique<machine::MemoryStorage>(size);
        const std::vector<uint8_t> dirt(static_cast<size_t>(std::min<uint64_t>(size, kMiB)), 0xEE);
        EXPECT_TRUE(storage->Write(0, dirt));
        EXPECT_TRUE(storage->Write(size - dirt.size(), dirt));
    }

    std::vector<uint8_t> Bytes(uint64_t offset, uint64_t length)
    {
        std::vector<uint8_t> bytes(length);
        EXPECT_TRUE(storage->Read(offset, bytes));
        return bytes;
    }

    uint64_t Number(uint64_t offset, uint64_t width)
    {
        uint64_t value = 0;
        const std::vector<uint8_t> bytes = Bytes(offset, width);
        for (size_t i = bytes.size(); i > 0; --i) {
            value = value << 8 | bytes[i - 1];
        }
        return value;
    }

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

    void FailWrite(uint64_t nth, uint32_t status)
    {
        machine.faults.Fail({.kind = machine::CallKind::WriteFile}, nth, status);
    }

    std::shared_ptr<ScriptedDevice> device = ScriptedDevice::AddTo(machine);
    std::unique_ptr<machine::Storage> storage;
    kk::DevicePtr target;
};
