#include "machine/raw_virtual_disks.h"

#include <fstream>

namespace machine {

uint32_t RawVirtualDisks::Create(const NewImage& image)
{
    if (!std::filesystem::exists(image.file)) {
        std::ofstream(image.file, std::ios::binary).flush();
    }
    std::error_code error;
    std::filesystem::resize_file(image.file, image.sizeBytes, error);
    if (error == std::errc::no_space_on_device || error == std::errc::file_too_large) {
        return kErrorDiskFull;
    }
    if (error) {
        return kErrorAccessDenied;
    }
    sectorBytes_ = image.sectorBytes;
    return kErrorSuccess;
}

uint32_t RawVirtualDisks::Inspect(const std::filesystem::path& file, ImageFacts& facts)
{
    facts = {};
    return std::filesystem::exists(file) ? kErrorSuccess : kErrorFileNotFound;
}

uint32_t RawVirtualDisks::Open(const std::filesystem::path& file, ImageAccess access, OpenedImage& disk)
{
    if (!std::filesystem::exists(file)) {
        return kErrorFileNotFound;
    }
    const auto mode = access == ImageAccess::ReadOnly ? FileStorage::Mode::ReadOnly : FileStorage::Mode::ReadWrite;
    disk = {.storage = std::make_unique<FileStorage>(file.string(), mode), .sectorBytes = sectorBytes_};
    return kErrorSuccess;
}

}  // namespace machine
