#pragma once

#include <memory>

#include "machine/device.h"
#include "machine/disk.h"

namespace machine {

/// `\??\PhysicalDriveN`: whole sectors, and the disk driver's requests.
class DiskDevice final : public Device {
public:
    DiskDevice(Machine& machine, std::shared_ptr<Disk> disk) : machine_(machine), disk_(std::move(disk)) {}

    const Disk& UnderlyingDisk() const { return *disk_; }

    IoResult Read(OpenFile& file, uint64_t offset, std::span<uint8_t> into) override;
    IoResult Write(OpenFile& file, uint64_t offset, std::span<const uint8_t> from) override;
    ControlAnswer Control(OpenFile& file, const ControlRequest& request) override;
    Status QueryFileSystemName(OpenFile& file, std::u16string& name) override;
    Status Flush(OpenFile& file) override;

private:
    ControlAnswer AnswerGeometry(const ControlRequest& request) const;
    ControlAnswer AnswerLayout(const ControlRequest& request);
    ControlAnswer AnswerLength(const ControlRequest& request) const;
    ControlAnswer AnswerGrowth(const ControlRequest& request);
    bool HitsMountedVolume(uint64_t offset, uint64_t length) const;

    Machine& machine_;
    std::shared_ptr<Disk> disk_;
};

}  // namespace machine
