#pragma once

#include "machine/virtual_disk_back_end.h"

namespace machine {

/// Real VHDX files, made by `qemu-img` and served by `qemu-nbd`. Knows sectors of 512 bytes only, and block sizes that
/// are powers of two. An overlay is a file in QEMU's own format that names its parent.
class QemuVirtualDisks final : public VirtualDiskBackEnd {
public:
    uint32_t Create(const NewImage& image) override;
    uint32_t CreateOverlay(const std::filesystem::path& file, const std::filesystem::path& parent) override;
    uint32_t Inspect(const std::filesystem::path& file, ImageFacts& facts) override;
    uint32_t Open(const std::filesystem::path& file, ImageAccess access, OpenedImage& disk) override;
};

}  // namespace machine
