#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>

#include "machine/storage.h"

// What stands behind the machine's virtual disks: where an image's bytes live and in which format.

namespace machine {

// Win32 error numbers that the service answers with.
inline constexpr uint32_t kErrorSuccess = 0;
inline constexpr uint32_t kErrorFileNotFound = 2;
inline constexpr uint32_t kErrorPathNotFound = 3;
inline constexpr uint32_t kErrorAccessDenied = 5;
inline constexpr uint32_t kErrorInvalidHandle = 6;
inline constexpr uint32_t kErrorNotReady = 21;
inline constexpr uint32_t kErrorSharingViolation = 32;
inline constexpr uint32_t kErrorNotSupported = 50;
inline constexpr uint32_t kErrorDeviceNotExist = 55;
inline constexpr uint32_t kErrorFileExists = 80;
inline constexpr uint32_t kErrorInvalidParameter = 87;
inline constexpr uint32_t kErrorDiskFull = 112;
inline constexpr uint32_t kErrorInsufficientBuffer = 122;
inline constexpr uint32_t kErrorFileCorrupt = 1392;
inline constexpr uint32_t kErrorVirtualDiskFormatUnknown = 0xC03A0004;
inline constexpr uint32_t kErrorVirtualDiskProviderNotFound = 0xC03A0014;
inline constexpr uint32_t kErrorNotVirtualDisk = 0xC03A0015;

/// A file that cannot be looked at counts as missing.
inline bool IsOnHost(const std::filesystem::path& file)
{
    std::error_code ignored;
    return std::filesystem::exists(file, ignored);
}

/// An image to be made. All fields have passed the service's checks.
struct NewImage {
    std::filesystem::path file;
    uint64_t sizeBytes = 0;
    uint32_t blockBytes = 0;
    uint32_t sectorBytes = 0;
};

/// What an image says of itself.
struct ImageFacts {
    std::filesystem::path parent = {};  // empty when the image stands alone
};

enum class ImageAccess { ReadWrite, ReadOnly };

/// An image that is open for use as a disk.
struct OpenedImage {
    std::unique_ptr<Storage> storage = nullptr;
    uint32_t sectorBytes = 512;
};

/// Errors are those of Win32; std::exception is for trouble of the host itself. The service has seen to it that an
/// image is created where nothing is, that what stands on it only reads it, and that one disk at a time writes it.
class VirtualDiskBackEnd {
public:
    virtual ~VirtualDiskBackEnd() = default;

    /// Whether there is an image at that place besides what the host's file system shows.
    virtual bool Knows(const std::filesystem::path& /*file*/) const { return false; }

    /// Whether creation may meet a file that is already there.
    virtual bool TakesExistingFiles() const { return false; }

    virtual uint32_t Create(const NewImage& image) = 0;
    /// Makes an image that has its parent's size and shows its parent's bytes until they are written.
    virtual uint32_t CreateOverlay(const std::filesystem::path& /*file*/, const std::filesystem::path& /*parent*/)
    {
        return kErrorNotSupported;
    }

    /// Whether the file is an image that can be opened, and what stands in it.
    virtual uint32_t Inspect(const std::filesystem::path& file, ImageFacts& facts) = 0;
    virtual uint32_t Open(const std::filesystem::path& file, ImageAccess access, OpenedImage& disk) = 0;
};

}  // namespace machine
