#pragma once

#include "machine/virtual_disk_back_end.h"

namespace machine {

/// Real VHDX files, made by `qemu-img` and served by `qemu-nbd`. Knows sectors of 512 bytes only, and block sizes that
/// are powers of two.
class QemuVirtualDisks final : public VirtualDiskBackEnd {
public:
    uint32_t Create(const NewImage& image) override;
    uint32_t Open(const std::filesystem::path& file, OpenedImage& disk) override;
};

}  // namespace machine
