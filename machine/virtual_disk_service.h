#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "image/virtual_disk_api.h"
#include "machine/host_drives.h"
#include "machine/storage_dependency.h"
#include "machine/virtual_disk_back_end.h"

namespace machine {

class Machine;

inline constexpr uint32_t kVirtualDiskAccessAttachRo = 0x10000;
inline constexpr uint32_t kVirtualDiskAccessAll = 0x3F0000;
inline constexpr uint32_t kAttachVirtualDiskFlagReadOnly = 1;

/// Ways in which the dependency query may deviate from the well-behaved one.
struct DependencyBehaviour {
    uint32_t failure = 0;                                 // the error that the query ends with
    bool hasNoEntries = false;                            // success, and nothing in the answer
    std::optional<DependencyTexts> texts = std::nullopt;  // in the first entry, in place of the true ones
    uint32_t refusals = 0;                                // so many queries find the buffer too small first
    std::optional<uint32_t> neededBytes = std::nullopt;   // told with every refusal in place of the true size
};

/// Ways in which the service may deviate from the well-behaved one.
struct VirtualDiskBehaviour {
    uint32_t detachFailure = 0;  // the error that detaching ends with, leaving the disk where it is
    uint32_t pathFailure = 0;    // the error that asking for the physical path ends with
    std::optional<std::u16string> physicalPath = std::nullopt;  // told in place of the true one
    bool terminatesPath = true;
    DependencyBehaviour dependency = {};
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

    struct OpenRequest {
        const kk::VirtualStorageType* storageType;
        const char16_t* path;
        uint32_t accessMask;
        uint32_t flags;
        const void* parameters;
    };
    uint32_t Open(const OpenRequest& request, kk::NtHandle* handle);
    uint32_t Attach(kk::NtHandle handle, uint32_t flags, uint32_t providerFlags,
                    const kk::AttachVirtualDiskParameters* parameters, const void* overlapped);
    uint32_t Detach(kk::NtHandle handle, uint32_t flags, uint32_t providerFlags);
    uint32_t GetPhysicalPath(kk::NtHandle handle, uint32_t* sizeInBytes, char16_t* path);
    uint32_t GetDependencies(kk::NtHandle disk, uint32_t flags, uint32_t size, kk::StorageDependencyInfo* answer,
                             uint32_t* sizeUsed);

    /// The image file behind a handle, for records; empty when it is no handle of this service.
    std::string NameOf(kk::NtHandle handle) const;
    /// The number of the disk that shows an image, if one does.
    std::optional<uint32_t> DiskNumberOf(const std::filesystem::path& file) const;
    /// The images that disks show, so that a test can see that none is left behind.
    std::vector<std::filesystem::path> AttachedImages() const;

    VirtualDiskBehaviour behaviour;

private:
    using Holds = std::vector<std::unique_ptr<ShareTable::Hold>>;

    /// A disk that shows an image.
    struct Attachment {
        uint32_t diskNumber;
        uint32_t flags;
        Holds holds;  // keep others away from the file, and writers away from what it stands on
    };
    /// An image that has handles or is attached.
    struct Image {
        std::filesystem::path file;
        std::u16string windowsPath;
        std::vector<std::filesystem::path> parents;  // the nearest first
        uint32_t handleCount = 0;
        std::optional<Attachment> attachment = std::nullopt;
    };
    /// What a handle stands for.
    struct OpenedHandle {
        std::shared_ptr<Image> image;
        uint32_t access;
    };
    /// Where an image lies, by both of its names.
    struct Location {
        std::u16string windowsPath = {};
        std::filesystem::path file = {};
    };

    uint32_t CreateOverlay(const std::filesystem::path& file, const char16_t* parentPath,
                           std::vector<std::filesystem::path>& parents);
    uint32_t Locate(const char16_t* path, Location& where) const;
    uint32_t LocateExisting(const char16_t* path, Location& where) const;
    uint32_t FindParents(std::filesystem::path file, std::vector<std::filesystem::path>& parents);
    bool LetsIn(const std::filesystem::path& file, uint32_t fileAccess) const;
    bool HoldFiles(const Image& image, bool readOnly, Holds& holds) const;
    kk::NtHandle MakeHandle(const Location& where, std::vector<std::filesystem::path> parents, uint32_t access);
    void CloseHandle(Image& image);
    void ForgetIfUnused(const Image& image);
    uint32_t UseHandle(kk::NtHandle handle, uint32_t neededAccess, std::shared_ptr<Image>& image) const;
    static std::u16string PhysicalPathOf(uint32_t diskNumber);
    std::shared_ptr<Image> FindImageBehind(const OpenFile& file) const;
    std::vector<StorageDependency> DependenciesOf(const Image& image) const;
    DependencyTexts TextsFor(uint32_t diskNumber, const std::u16string& windowsPath) const;
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
