#pragma once

#include <memory>

#include "machine/volume.h"
#include "machine/volume_view.h"

namespace machine {

/// `\Device\HarddiskVolumeN`: a live volume, which can also be written and tells where on the disks it lies.
class VolumeDevice final : public VolumeViewDevice {
public:
    VolumeDevice(const Switches& switches, const std::shared_ptr<Volume>& volume)
        : VolumeViewDevice(switches, volume, volume->Answers()), volume_(volume)
    {
    }

    Status Open(OpenFile& file, std::u16string_view rest) override;
    void Close(OpenFile& file) override;
    IoResult Read(OpenFile& file, uint64_t offset, std::span<uint8_t> into) override;
    IoResult Write(OpenFile& file, uint64_t offset, std::span<const uint8_t> from) override;
    ControlAnswer Control(OpenFile& file, const ControlRequest& request) override;
    Status QueryStandardInformation(OpenFile& file, kk::FileStandardInformation& information) override;
    Status QueryFileSystemName(OpenFile& file, std::u16string& name) override;
    Status Flush(OpenFile& file) override;

protected:
    uint64_t BoundaryBytes() override;

private:
    ControlAnswer AnswerFileSystem(OpenFile& file, const ControlRequest& request);
    Status LockOrDismount(OpenFile& file, uint32_t code);
    Status NoteNewEnd(Status status);
    ControlAnswer AnswerExtents(const ControlRequest& request) const;

    std::shared_ptr<Volume> volume_;
};

}  // namespace machine
