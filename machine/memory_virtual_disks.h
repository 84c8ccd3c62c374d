#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>

#include "machine/qemu_virtual_disks.h"
#include "machine/tracked_storage.h"
#include "machine/virtual_disk_back_end.h"

namespace machine {

/// Images that live in memory, found by their path; takes any geometry. Of a new image nothing appears on the host.
/// Of a new overlay a small file does, so that it can be seen, held and deleted as a file: the overlay goes with it.
/// Files of the host that are nothing in memory are images if QEMU can open them.
class MemoryVirtualDisks final : public VirtualDiskBackEnd {
public:
    bool Knows(const std::filesystem::path& file) const override { return FindImage(file) != nullptr; }
    uint32_t Create(const NewImage& image) override;
    uint32_t CreateOverlay(const std::filesystem::path& file, const std::filesystem::path& parent) override;
    uint32_t Inspect(const std::filesystem::path& file, ImageFacts& facts) override;
    uint32_t Open(const std::filesystem::path& file, ImageAccess access, OpenedImage& disk) override;

    /// The bytes of an image, also after it was detached; null when there is none. Those of an overlay are what was
    /// written into it.
    std::shared_ptr<TrackedStorage> ImageBytes(const std::filesystem::path& file) const;
    /// What the image was created with; null when there is none.
    const NewImage* ImageShape(const std::filesystem::path& file) const;
    /// Forgets an image, as a file is deleted.
    void Remove(const std::filesystem::path& file) { images_.erase(file); }
    /// Contents for a file of the host in place of its own, for formats that QEMU does not open. They go with the file.
    TrackedStorage& StandInFor(const std::filesystem::path& file, uint64_t sizeBytes, uint32_t sectorBytes);

private:
    struct Image {
        NewImage shape;
        std::shared_ptr<TrackedStorage> bytes;
        std::filesystem::path parent = {};
        bool hasHostFile = false;
    };
    const Image* FindImage(const std::filesystem::path& file) const;

    std::map<std::filesystem::path, Image> images_;
    QemuVirtualDisks hostImages_;
};

}  // namespace machine
