#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "image/virtual_disk_api.h"
#include "machine/host_drives.h"
#include "machine/virtual_disk_back_end.h"

namespace machine {

class Machine;

/// ATTACH_VIRTUAL_DISK_PARAMETERS, version 1, with the room of later versions.
struct AttachVirtualDiskParameters {
    uint32_t version;
    uint32_t reserved4;
    uint64_t reserved[2];
};
static_assert(sizeof(AttachVirtualDiskParameters) == 24);

inline constexpr uint32_t kAttachVirtualDiskFlagReadOnly = 1;
inline constexpr uint32_t kAttachVirtualDiskFlagPermanentLifetime = 4;

/// Ways in which the service may deviate from the well-behaved one.
struct VirtualDiskBehaviour {
    uint32_t detachFailure = 0;  // the error that detaching ends with, leaving the disk where it is
    uint32_t pathFailure = 0;    // the error that asking for the physical path ends with
    std::optional<std::u16string> physicalPath = std::nullopt;  // told in place of the true one
    bool terminatesPath = true;
};

/// The virtual-disk service behind virtdisk.dll. Every function answers with a Win32 error and touches its outputs on
/// success alone, but for sizes that were too small.
class VirtualDiskService : public std::enable_shared_from_this<VirtualDiskService> {
public:
    VirtualDiskService(Machine& machine, std::shared_ptr<VirtualDiskBackEnd> backEnd);

    struct CreateRequest {
        const kk::VirtualStorageType* storageType;
        const char16_t* path;
        uint32_t accessMask;
        uint32_t flags;
        uint32_t providerFlags;
        const kk::CreateVirtualDiskParameters* parameters;
        const void* overlapped;
    };
    uint32_t Create(const CreateRequest& request, kk::NtHandle* handle);
    uint32_t Attach(kk::NtHandle handle, uint32_t flags, uint32_t providerFlags,
                    const AttachVirtualDiskParameters* parameters, const void* overlapped);
    uint32_t Detach(kk::NtHandle handle, uint32_t flags, uint32_t providerFlags);
    uint32_t GetPhysicalPath(kk::NtHandle handle, uint32_t* sizeInBytes, char16_t* path);

    /// The image file behind a handle, for records; empty when it is no handle of this service.
    std::string NameOf(kk::NtHandle handle) const;
    /// The number of the disk that shows an image, if one does.
    std::optional<uint32_t> DiskNumberOf(const std::filesystem::path& file) const;

    /// What GetVirtualDiskPhysicalPath tells from now on; unterminated text leaves the rest of the buffer alone.
    void SetPhysicalPathText(std::u16string text, bool terminated = true);
    VirtualDiskBehaviour behaviour;

private:
    /// A disk that shows an image.
    struct Attachment {
        uint32_t diskNumber;
        bool permanent;
        std::unique_ptr<ShareTable::Hold> hold;  // keeps others away from the file
    };
    /// An image that has handles or is attached.
    struct Image {
        std::filesystem::path file;
        uint32_t handleCount = 0;
        std::optional<Attachment> attachment = std::nullopt;
    };

    uint32_t LocateNewFile(const char16_t* path, std::filesystem::path& file) const;
    kk::NtHandle MakeHandle(const std::filesystem::path& file);
    void CloseHandle(Image& image);
    std::shared_ptr<Image> FindImage(kk::NtHandle handle) const;
    void TakeDiskOut(Image& image);

    Machine& machine_;
    std::shared_ptr<VirtualDiskBackEnd> backEnd_;
    std::map<std::filesystem::path, std::shared_ptr<Image>> images_;
};

/// Gives the machine virtdisk.dll. The service lives as long as the machine. Keep a pointer to the back end to look
/// at images:
///
///     auto images = std::make_shared<MemoryVirtualDisks>();
///     VirtualDiskService& service = InstallVirtualDiskService(machine, images);
VirtualDiskService& InstallVirtualDiskService(Machine& machine, std::shared_ptr<VirtualDiskBackEnd> backEnd);

}  // namespace machine
