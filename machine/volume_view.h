#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "machine/device.h"
#include "machine/switches.h"

namespace machine {

/// The bytes of a volume: the live ones, or those of the moment at which a snapshot was taken.
class VolumeView {
public:
    virtual ~VolumeView() = default;

    virtual uint64_t Length() const = 0;
    virtual uint32_t SectorSize() const = 0;
    /// Fills all of `into` or fails.
    virtual bool Read(uint64_t offset, std::span<uint8_t> into) = 0;
};

/// Answers that a test gives in place of the ones found in the volume's bytes.
struct VolumeAnswers {
    using Answer = std::function<ControlAnswer(const ControlRequest&)>;

    std::optional<std::u16string> fileSystemName = std::nullopt;
    Answer ntfsData = {};
    Answer bitmap = {};
    Answer lengthInfo = {};
};

/// What live volumes and snapshots have in common: reads, length, file-system name, NTFS data and bitmap, all found
/// in the bytes at each request. Writing is refused as on a write-protected medium.
class VolumeViewDevice : public Device {
public:
    VolumeViewDevice(const Switches& switches, std::shared_ptr<VolumeView> view, std::shared_ptr<VolumeAnswers> answers)
        : switches_(switches), view_(std::move(view)), answers_(std::move(answers))
    {
    }

    Status Open(OpenFile& file, std::u16string_view rest) override;
    IoResult Read(OpenFile& file, uint64_t offset, std::span<uint8_t> into) override;
    IoResult Write(OpenFile& file, uint64_t offset, std::span<const uint8_t> from) override;
    ControlAnswer Control(OpenFile& file, const ControlRequest& request) override;
    Status QueryStandardInformation(OpenFile& file, kk::FileStandardInformation& information) override;
    Status QueryFileSystemName(OpenFile& file, std::u16string& name) override;
    Status Flush(OpenFile& file) override;

protected:
    VolumeView& View() { return *view_; }
    const Switches& TheSwitches() const { return switches_; }

    /// Where transfers end: the volume's length, or the file system's if that boundary is kept.
    virtual uint64_t BoundaryBytes();

private:
    ControlAnswer AnswerNtfsData(const ControlRequest& request);
    ControlAnswer AnswerBitmap(const ControlRequest& request);
    ControlAnswer AnswerLength(const ControlRequest& request);

    const Switches& switches_;
    std::shared_ptr<VolumeView> view_;
    std::shared_ptr<VolumeAnswers> answers_;
};

}  // namespace machine
