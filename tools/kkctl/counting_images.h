#pragma once

#include <filesystem>
#include <functional>
#include <memory>

#include "machine/qemu_virtual_disks.h"

namespace kkctl {

/// Real VHDX files whose writes are counted as they happen.
class CountingImages final : public machine::VirtualDiskBackEnd {
public:
    /// `wrote` hears of every write, on the thread that writes.
    explicit CountingImages(std::function<void()> wrote);
    ~CountingImages() override;

    uint32_t Create(const machine::NewImage& image) override { return images_.Create(image); }
    uint32_t CreateOverlay(const std::filesystem::path& file, const std::filesystem::path& parent) override
    {
        return images_.CreateOverlay(file, parent);
    }
    uint32_t Inspect(const std::filesystem::path& file, machine::ImageFacts& facts) override
    {
        return images_.Inspect(file, facts);
    }
    uint32_t Open(const std::filesystem::path& file, machine::ImageAccess access, machine::OpenedImage& disk) override;

    /// Bytes written into the file since it was opened; 0 for any file but the one opened last. For any thread.
    uint64_t BytesWritten(const std::filesystem::path& file) const;

private:
    class Counter;

    machine::QemuVirtualDisks images_;
    std::shared_ptr<Counter> counter_;  // shared with the disks, which may go later
};

}  // namespace kkctl
