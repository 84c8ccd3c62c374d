#pragma once

#include <functional>

#include "machine/qemu_virtual_disks.h"

namespace kkctl {

/// Real VHDX files whose writes are made known as they happen.
class CountingImages final : public machine::VirtualDiskBackEnd {
public:
    /// `opened` hears of every image before anything is written to it, `wrote` of the bytes of every write; both on the
    /// thread that does it.
    CountingImages(std::function<void()> opened, std::function<void(uint64_t bytes)> wrote)
        : opened_(std::move(opened)), wrote_(std::move(wrote))
    {
    }

    uint32_t Create(const machine::NewImage& image) override { return images_.Create(image); }
    uint32_t Open(const std::filesystem::path& file, machine::OpenedImage& disk) override;

private:
    machine::QemuVirtualDisks images_;
    std::function<void()> opened_;
    std::function<void(uint64_t bytes)> wrote_;
};

}  // namespace kkctl
