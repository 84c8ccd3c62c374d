#pragma once

#include <gmock/gmock.h>

#include <algorithm>
#include <memory>
#include <vector>

#include "disk/volume_controls.h"
#include "exports/support/restore_test.h"
#include "support/scripted_device.h"

/// Clones between two volumes of disk 0, neither of which has a file system.
class CloneVolumeTest : public RestoreTest {
protected:
    static constexpr uint64_t kSize = 48 * kMiB;
    static constexpr uint64_t kSource = kMiB;
    static constexpr uint64_t kLength = 10 * kMiB;
    static constexpr uint64_t kStart = 16 * kMiB;
    static constexpr uint64_t kTargetLength = 24 * kMiB;

    CloneVolumeTest()
    {
        AddTarget(kSmallGpt, {{kSource, kLength}, {kStart, kTargetLength}}, kSize);
        machine.SetVolumeNumber(*machine.FindVolume(0, kSource), 1);
        machine.SetVolumeNumber(*machine.FindVolume(0, kStart), 2);
        Target().WriteBytes(kSource, Pattern(kLength, 1));
    }

    int32_t Clone(uint32_t extend = 0)
    {
        return CloneVolume(u"\\Device\\HarddiskVolume1", u"\\Device\\HarddiskVolume2", extend);
    }

    /// The volume at that place says that NTFS has so many sectors there.
    void AnswerNtfsData(uint64_t start, int64_t numberSectors, uint32_t bytesPerSector)
    {
        machine.FindVolume(0, start)->SetNtfsData([=](const machine::ControlRequest& request) {
            EXPECT_EQ(request.outputRoom, 128u);
            kk::NtfsVolumeData data = {};
            data.numberSectors = numberSectors;
            data.bytesPerSector = bytesPerSector;
            return machine::ControlAnswer{.output = machine::BytesOf(data)};
        });
    }

    /// So many bytes from the source's beginning are on the target, and nothing behind them has changed.
    void ExpectCopied(uint64_t bytes)
    {
        EXPECT_TRUE(Target().ReadBytes(kSource, bytes) == Target().ReadBytes(kStart, bytes));
        ExpectOld(kStart + bytes, kTargetLength - bytes);
    }

    std::vector<Place> Transfers(machine::CallKind kind, const char* object) const
    {
        std::vector<Place> places;
        for (const machine::CallRecord& call : machine.journal.FindAll({.kind = kind, .object = object})) {
            places.push_back({call.offset, call.length});
        }
        return places;
    }

    /// A source of any length that is no NTFS volume: the pattern of volume 1, read from a device without sectors.
    void AddScriptedSource(uint64_t size)
    {
        device = ScriptedDevice::AddTo(machine);
        device->control = [size](const machine::ControlRequest& request) {
            return request.code == 0x7405C ? machine::ControlAnswer{.output = machine::BytesOf(size)}
                                           : machine::ControlAnswer{.status = machine::kInvalidDeviceRequest};
        };
        device->read = [this](uint64_t offset, std::span<uint8_t> into) {
            if (offset < badEnd && offset + into.size() > badStart) {
                return machine::IoResult{machine::kIoDeviceError, 0};
            }
            const std::vector<uint8_t> bytes = Target().ReadBytes(kSource + offset, into.size());
            std::ranges::copy(bytes, into.begin());
            return machine::IoResult{machine::kSuccess, into.size()};
        };
    }

    std::shared_ptr<ScriptedDevice> device;
    /// What of it cannot be read.
    uint64_t badStart = 0;
    uint64_t badEnd = 0;
};
