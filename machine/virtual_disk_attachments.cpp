#include <algorithm>
#include <cstring>
#include <utility>

#include "machine/machine.h"
#include "machine/text.h"
#include "machine/virtual_disk_service.h"

// Disks that show images.

namespace machine {
namespace {

constexpr uint32_t kKnownAttachFlags = kAttachVirtualDiskFlagReadOnly | kk::kAttachVirtualDiskFlagNoDriveLetter |
                                       kk::kAttachVirtualDiskFlagPermanentLifetime;

/// An attached disk gets a number above all others, so that none that was ever listed comes again at once.
uint32_t NextDiskNumber(const Machine& machine)
{
    return machine.Disks().empty() ? 0 : machine.Disks().rbegin()->first + 1;
}

}  // namespace

uint32_t VirtualDiskService::Attach(kk::NtHandle handle, uint32_t flags, uint32_t providerFlags,
                                    const kk::AttachVirtualDiskParameters* parameters, const void* overlapped)
{
    const bool readOnly = (flags & kAttachVirtualDiskFlagReadOnly) != 0;
    const uint32_t neededAccess = kk::kVirtualDiskAccessAttachRw | (readOnly ? kVirtualDiskAccessAttachRo : 0);
    std::shared_ptr<Image> image;
    if (const uint32_t error = UseHandle(handle, neededAccess, image); error != kErrorSuccess) {
        return error;
    }
    if ((flags & ~kKnownAttachFlags) != 0 || providerFlags != 0 ||
        (parameters != nullptr && parameters->version != kk::kAttachVirtualDiskVersion1)) {
        return kErrorInvalidParameter;
    }
    if (overlapped != nullptr) {
        return kErrorNotSupported;
    }
    Holds holds;
    if (image->attachment || !HoldFiles(*image, readOnly, holds)) {
        return kErrorSharingViolation;
    }
    OpenedImage opened;
    const auto access = readOnly ? ImageAccess::ReadOnly : ImageAccess::ReadWrite;
    if (const uint32_t error = backEnd_->Open(image->file, access, opened); error != kErrorSuccess) {
        return error;
    }
    const uint32_t number = NextDiskNumber(machine_);
    const bool noDriveLetters = (flags & kk::kAttachVirtualDiskFlagNoDriveLetter) != 0;
    machine_.AddDisk(
        std::move(opened.storage),
        {.sectorSize = opened.sectorBytes, .number = number, .readOnly = readOnly, .noDriveLetters = noDriveLetters});
    image->attachment.emplace(number, flags, std::move(holds));
    return kErrorSuccess;
}

uint32_t VirtualDiskService::Detach(kk::NtHandle handle, uint32_t flags, uint32_t providerFlags)
{
    std::shared_ptr<Image> image;
    if (const uint32_t error = UseHandle(handle, kk::kVirtualDiskAccessDetach, image); error != kErrorSuccess) {
        return error;
    }
    if (flags != kk::kDetachVirtualDiskFlagNone || providerFlags != 0) {
        return kErrorInvalidParameter;
    }
    if (!image->attachment) {
        return kErrorNotReady;
    }
    if (behaviour.detachFailure != 0) {
        return behaviour.detachFailure;
    }
    TakeDiskOut(*image);
    return kErrorSuccess;
}

uint32_t VirtualDiskService::GetPhysicalPath(kk::NtHandle handle, uint32_t* sizeInBytes, char16_t* path)
{
    std::shared_ptr<Image> image;
    if (const uint32_t error = UseHandle(handle, kk::kVirtualDiskAccessGetInfo, image); error != kErrorSuccess) {
        return error;
    }
    if (sizeInBytes == nullptr || (path == nullptr && *sizeInBytes != 0)) {
        return kErrorInvalidParameter;
    }
    if (!image->attachment) {
        return kErrorDeviceNotExist;
    }
    if (behaviour.pathFailure != 0) {
        return behaviour.pathFailure;
    }
    const std::u16string text = behaviour.physicalPath.value_or(PhysicalPathOf(image->attachment->diskNumber));
    const size_t units = text.size() + (behaviour.terminatesPath ? 1 : 0);
    const uint32_t room = std::exchange(*sizeInBytes, static_cast<uint32_t>(units * sizeof(char16_t)));
    if (room < *sizeInBytes) {
        return kErrorInsufficientBuffer;
    }
    std::memcpy(path, text.c_str(), *sizeInBytes);
    return kErrorSuccess;
}

std::u16string VirtualDiskService::PhysicalPathOf(uint32_t diskNumber)
{
    return u"\\\\.\\PhysicalDrive" + Utf16(std::to_string(diskNumber));
}

std::optional<uint32_t> VirtualDiskService::DiskNumberOf(const std::filesystem::path& file) const
{
    const auto found = images_.find(file);
    if (found == images_.end() || !found->second->attachment) {
        return std::nullopt;
    }
    return found->second->attachment->diskNumber;
}

std::vector<std::filesystem::path> VirtualDiskService::AttachedImages() const
{
    std::vector<std::filesystem::path> files;
    for (const auto& [file, image] : images_) {
        if (image->attachment) {
            files.push_back(file);
        }
    }
    return files;
}

/// Whoever writes an image has it alone. What it stands on is only read, and may be read by others.
bool VirtualDiskService::HoldFiles(const Image& image, bool readOnly, Holds& holds) const
{
    ShareTable& shares = machine_.drives.shares;
    const uint32_t access = kFileReadData | (readOnly ? 0 : kFileWriteData);
    holds.push_back(shares.TryHold(image.file.string(), access, readOnly ? kk::kFileShareRead : 0));
    for (const std::filesystem::path& parent : image.parents) {
        holds.push_back(shares.TryHold(parent.string(), kFileReadData, kk::kFileShareRead));
    }
    return std::find(holds.begin(), holds.end(), nullptr) == holds.end();
}

void VirtualDiskService::TakeDiskOut(Image& image)
{
    const uint32_t number = image.attachment->diskNumber;
    if (machine_.FindDisk(number) != nullptr) {
        machine_.RemoveDisk(number);
    }
    image.attachment.reset();
}

}  // namespace machine
