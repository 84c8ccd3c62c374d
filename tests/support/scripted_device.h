#pragma once

#include <functional>
#include <memory>

#include "machine/device.h"
#include "machine/machine.h"

/// A device whose answers a test gives. Requests without an answer are refused as an unknown one is.
class ScriptedDevice final : public machine::Device {
public:
    static constexpr char16_t kName[] = u"\\Device\\Scripted";

    std::function<machine::IoResult(uint64_t offset, std::span<uint8_t> into)> read;
    std::function<machine::IoResult(uint64_t offset, std::span<const uint8_t> from)> write;
    std::function<machine::ControlAnswer(const machine::ControlRequest&)> control;
    std::function<machine::Status(kk::FileStandardInformation&)> standardInformation;
    machine::Status flushStatus = machine::kSuccess;

    /// Adds one to the machine under `kName`.
    static std::shared_ptr<ScriptedDevice> AddTo(machine::Machine& machine)
    {
        auto device = std::make_shared<ScriptedDevice>();
        machine.names.AddDevice(kName, device);
        return device;
    }

    machine::IoResult Read(machine::OpenFile& file, uint64_t offset, std::span<uint8_t> into) override
    {
        return read ? read(offset, into) : Device::Read(file, offset, into);
    }
    machine::IoResult Write(machine::OpenFile& file, uint64_t offset, std::span<const uint8_t> from) override
    {
        return write ? write(offset, from) : Device::Write(file, offset, from);
    }
    machine::ControlAnswer Control(machine::OpenFile& file, const machine::ControlRequest& request) override
    {
        return control ? control(request) : Device::Control(file, request);
    }
    machine::Status QueryStandardInformation(machine::OpenFile& file, kk::FileStandardInformation& answer) override
    {
        return standardInformation ? standardInformation(answer) : Device::QueryStandardInformation(file, answer);
    }
    machine::Status Flush(machine::OpenFile& /*file*/) override { return flushStatus; }
};
