#include "machine/memory_virtual_disks.h"

#include <fstream>
#include <utility>

#include "machine/overlay_storage.h"

namespace machine {
namespace {

/// A disk's own storage, which leads to an image's bytes and leaves them behind when the disk goes.
class AttachedStorage final : public Storage {
public:
    explicit AttachedStorage(std::shared_ptr<Storage> bytes) : bytes_(std::move(bytes)) {}

    uint64_t Size() const override { return bytes_->Size(); }
    bool Read(uint64_t offset, std::span<uint8_t> into) override { return bytes_->Read(offset, into); }
    bool Write(uint64_t offset, std::span<const uint8_t> from) override { return bytes_->Write(offset, from); }
    bool Flush() override { return bytes_->Flush(); }
    std::vector<Stretch> DataIn(uint64_t offset, uint64_t length) const override
    {
        return bytes_->DataIn(offset, length);
    }

private:
    std::shared_ptr<Storage> bytes_;
};

}  // namespace

uint32_t MemoryVirtualDisks::Create(const NewImage& image)
{
    images_[image.file] = {image, std::make_shared<TrackedStorage>(image.sizeBytes)};
    return kErrorSuccess;
}

uint32_t MemoryVirtualDisks::CreateOverlay(const std::filesystem::path& file, const std::filesystem::path& parent)
{
    OpenedImage base;
    if (const uint32_t error = Open(parent, ImageAccess::ReadOnly, base); error != kErrorSuccess) {
        return error;
    }
    if (!(std::ofstream(file) << "An overlay that lives in memory.\n")) {
        return kErrorAccessDenied;
    }
    const uint64_t sizeBytes = base.storage->Size();
    const NewImage shape = {.file = file, .sizeBytes = sizeBytes, .blockBytes = 0, .sectorBytes = base.sectorBytes};
    images_[file] = {shape, std::make_shared<TrackedStorage>(sizeBytes), parent, true};
    return kErrorSuccess;
}

uint32_t MemoryVirtualDisks::Inspect(const std::filesystem::path& file, ImageFacts& facts)
{
    const Image* const image = FindImage(file);
    if (image == nullptr) {
        return hostImages_.Inspect(file, facts);
    }
    facts.parent = image->parent;
    return kErrorSuccess;
}

uint32_t MemoryVirtualDisks::Open(const std::filesystem::path& file, ImageAccess access, OpenedImage& disk)
{
    const Image* const image = FindImage(file);
    if (image == nullptr) {
        return hostImages_.Open(file, access, disk);
    }
    if (image->parent.empty()) {
        disk = {.storage = std::make_unique<AttachedStorage>(image->bytes), .sectorBytes = image->shape.sectorBytes};
        return kErrorSuccess;
    }
    OpenedImage parent;
    if (const uint32_t error = Open(image->parent, ImageAccess::ReadOnly, parent); error != kErrorSuccess) {
        return error;
    }
    disk = {.storage = std::make_unique<OverlayStorage>(std::move(parent.storage), image->bytes),
            .sectorBytes = image->shape.sectorBytes};
    return kErrorSuccess;
}

std::shared_ptr<TrackedStorage> MemoryVirtualDisks::ImageBytes(const std::filesystem::path& file) const
{
    const Image* const image = FindImage(file);
    return image != nullptr ? image->bytes : nullptr;
}

const NewImage* MemoryVirtualDisks::ImageShape(const std::filesystem::path& file) const
{
    const Image* const image = FindImage(file);
    return image != nullptr ? &image->shape : nullptr;
}

TrackedStorage& MemoryVirtualDisks::StandInFor(const std::filesystem::path& file, uint64_t sizeBytes,
                                               uint32_t sectorBytes)
{
    const NewImage shape = {.file = file, .sizeBytes = sizeBytes, .blockBytes = 0, .sectorBytes = sectorBytes};
    images_[file] = {shape, std::make_shared<TrackedStorage>(sizeBytes), {}, true};
    return *images_[file].bytes;
}

/// Null when the file that stood for the image is gone.
const MemoryVirtualDisks::Image* MemoryVirtualDisks::FindImage(const std::filesystem::path& file) const
{
    const auto found = images_.find(file);
    const bool isThere = found != images_.end() && (!found->second.hasHostFile || IsOnHost(file));
    return isThere ? &found->second : nullptr;
}

}  // namespace machine
