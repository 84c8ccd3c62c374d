#pragma once

#include "machine/virtual_disk_back_end.h"

namespace machine {

/// Images that are nothing but the disk's bytes in a file of the host, for measurements: a write goes straight to the
/// file. The format keeps no sector size, so that an image is opened with the one of the last creation.
class RawVirtualDisks final : public VirtualDiskBackEnd {
public:
    /// With `fillsExistingFiles` creation takes over a file that is already there, and its pages with it.
    explicit RawVirtualDisks(bool fillsExistingFiles = false) : fillsExistingFiles_(fillsExistingFiles) {}

    bool TakesExistingFiles() const override { return fillsExistingFiles_; }
    uint32_t Create(const NewImage& image) override;
    uint32_t Inspect(const std::filesystem::path& file, ImageFacts& facts) override;
    uint32_t Open(const std::filesystem::path& file, ImageAccess access, OpenedImage& disk) override;

private:
    bool fillsExistingFiles_;
    uint32_t sectorBytes_ = 512;
};

}  // namespace machine
