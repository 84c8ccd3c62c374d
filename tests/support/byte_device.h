#pragma once

#include <algorithm>
#include <memory>
#include <vector>

#include "core/file_opener.h"
#include "machine/storage.h"
#include "support/machine_test.h"
#include "support/scripted_device.h"

/// A test of what is read from and written to a device that takes any bytes at any offset, however large the sectors
/// that its user believes in. The journal begins after the open.
class ByteDeviceTest : public MachineTest {
protected:
    ByteDeviceTest()
    {
        device->read = [this](uint64_t offset, std::span<uint8_t> into) -> machine::IoResult {
            if (storage == nullptr || !storage->Read(offset, into)) {
                return {machine::kNonexistentSector, 0};
            }
            return {machine::kSuccess, into.size()};
        };
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

    /// Gives the device bytes of which the first and last MiB are all 0xEE, so that nothing passes for zero by chance.
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

    void FailWrite(uint64_t nth, uint32_t status)
    {
        machine.faults.Fail({.kind = machine::CallKind::WriteFile}, nth, status);
    }

    std::shared_ptr<ScriptedDevice> device = ScriptedDevice::AddTo(machine);
    std::unique_ptr<machine::Storage> storage;
    kk::DevicePtr target;
};
