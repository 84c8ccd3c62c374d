#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "core/guid.h"
#include "machine/disk.h"
#include "machine/file_system.h"
#include "machine/volume_opens.h"
#include "machine/volume_view.h"

namespace machine {

/// A stretch of a disk that belongs to a volume, in bytes.
struct Extent {
    std::shared_ptr<Disk> disk;
    uint64_t start = 0;
    uint64_t length = 0;
};

/// Reads from stretches of disks as if they were one. Fills all of `into` or fails.
bool ReadExtents(const std::vector<Extent>& extents, uint64_t offset, std::span<uint8_t> into);

/// A volume: one or more extents of disks, shown as one device.
class Volume final : public VolumeView {
public:
    /// `uniqueId` is what the mount manager knows the volume by.
    Volume(uint32_t number, Extent extent, const kk::Guid& guid, std::vector<uint8_t> uniqueId);

    uint32_t Number() const { return number_; }
    std::u16string DeviceName() const;  // \Device\HarddiskVolume3
    const kk::Guid& Guid() const { return guid_; }
    std::u16string LinkName() const;  // \??\Volume{...}
    std::u16string Path() const;      // \\?\Volume{...}\ with the backslash at its end
    std::optional<char16_t> Letter() const { return letter_; }
    const std::vector<uint8_t>& UniqueId() const { return uniqueId_; }

    const std::vector<Extent>& Extents() const { return extents_; }
    /// Makes the volume span a further stretch.
    Volume& AddExtent(Extent extent);
    bool Covers(uint32_t diskNumber, uint64_t offset, uint64_t length) const;

    uint64_t Length() const override;
    uint32_t SectorSize() const override;
    bool Read(uint64_t offset, std::span<uint8_t> into) override { return ReadExtents(extents_, offset, into); }
    Status Write(uint64_t offset, std::span<const uint8_t> from);

    FileSystem RecognisedFileSystem() { return RecogniseFileSystem(*this); }

    /// The handles that are open, and the rules between them.
    VolumeOpens& Opens() { return opens_; }
    /// A system or paging volume, which refuses to be locked and dismounted.
    Volume& SetInUseBySystem(bool inUse = true);

    // Answers in place of the true ones, for tests.
    Volume& SetFileSystemName(std::u16string name);
    Volume& SetNtfsData(VolumeAnswers::Answer answer);
    Volume& SetBitmapAnswer(VolumeAnswers::Answer answer);
    Volume& SetLengthInfo(VolumeAnswers::Answer answer);
    const std::shared_ptr<VolumeAnswers>& Answers() const { return answers_; }

    /// False once its partition or its disk has gone.
    bool IsPresent() const { return present_; }

private:
    friend class Volumes;

    uint32_t number_;
    std::vector<Extent> extents_;
    kk::Guid guid_;
    std::vector<uint8_t> uniqueId_;
    std::optional<char16_t> letter_;
    std::shared_ptr<VolumeAnswers> answers_ = std::make_shared<VolumeAnswers>();
    VolumeOpens opens_;
    bool losesLetter_ = false;  // on the next rescan
    bool present_ = true;
};

}  // namespace machine
