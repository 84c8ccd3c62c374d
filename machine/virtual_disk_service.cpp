#include "machine/virtual_disk_service.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "machine/machine.h"
#include "machine/text.h"

namespace machine {
namespace {

constexpr char kHandleKind[] = "virtual disk";
constexpr uint64_t kMebibyte = 1 << 20;
constexpr uint64_t kMaximumSizeLimit = 64ull << 40;  // the format's own limit
constexpr uint64_t kMinimumSize = 3 * kMebibyte;
constexpr uint32_t kDefaultBlockBytes = 32 << 20;
constexpr uint32_t kKnownAttachFlags =
    kAttachVirtualDiskFlagReadOnly | kk::kAttachVirtualDiskFlagNoDriveLetter | kAttachVirtualDiskFlagPermanentLifetime;

bool IsSectorSize(uint32_t bytes)
{
    return bytes == 512 || bytes == 4096;
}

bool NamesNothingElse(const kk::CreateVirtualDiskParameters& parameters)
{
    return parameters.openFlags == 0 && parameters.parentVirtualStorageType.deviceId == 0 &&
           parameters.sourceVirtualStorageType.deviceId == 0;
}

/// Checks the geometry that is asked for and fills in defaults.
bool ReadGeometry(const kk::CreateVirtualDiskParameters& parameters, const Switches& switches, NewImage& image)
{
    image.sizeBytes = parameters.maximumSize;
    image.sectorBytes = parameters.sectorSizeInBytes != 0 ? parameters.sectorSizeInBytes : 512;
    image.blockBytes = parameters.blockSizeInBytes != 0 ? parameters.blockSizeInBytes : kDefaultBlockBytes;
    const uint32_t physicalBytes = parameters.physicalSectorSizeInBytes;
    if (!IsSectorSize(image.sectorBytes) || (physicalBytes != 0 && !IsSectorSize(physicalBytes))) {
        return false;
    }
    if (physicalBytes != 0 && physicalBytes < image.sectorBytes) {
        return false;
    }
    if (image.blockBytes % kMebibyte != 0 || image.blockBytes > 256 * kMebibyte) {
        return false;
    }
    const uint64_t minimum = switches.minimumVirtualDiskSize ? kMinimumSize : image.sectorBytes;
    return image.sizeBytes >= minimum && image.sizeBytes <= kMaximumSizeLimit &&
           image.sizeBytes % image.sectorBytes == 0;
}

/// An attached disk gets a number above all others, so that none that was ever listed comes again at once.
uint32_t NextDiskNumber(const Machine& machine)
{
    return machine.Disks().empty() ? 0 : machine.Disks().rbegin()->first + 1;
}

}  // namespace

VirtualDiskService::VirtualDiskService(Machine& machine, std::shared_ptr<VirtualDiskBackEnd> backEnd)
    : machine_(machine), backEnd_(std::move(backEnd))
{
}

uint32_t VirtualDiskService::Create(const CreateRequest& request, kk::NtHandle* handle)
{
    const kk::CreateVirtualDiskParameters* const parameters = request.parameters;
    if (request.storageType == nullptr || request.path == nullptr || parameters == nullptr || handle == nullptr) {
        return kErrorInvalidParameter;
    }
    if (request.storageType->deviceId != kk::kVirtualStorageTypeDeviceVhdx ||
        request.storageType->vendorId != kk::kVirtualStorageTypeVendorMicrosoft) {
        return kErrorVirtualDiskProviderNotFound;
    }
    // Version 2 takes the place of access masks.
    if (parameters->version != kk::kCreateVirtualDiskVersion2 || request.accessMask != kk::kVirtualDiskAccessNone ||
        request.flags != kk::kCreateVirtualDiskFlagNone || request.providerFlags != 0) {
        return kErrorInvalidParameter;
    }
    if (parameters->parentPath != nullptr || parameters->sourcePath != nullptr || request.overlapped != nullptr) {
        return kErrorNotSupported;
    }
    NewImage image;
    if (!NamesNothingElse(*parameters) || !ReadGeometry(*parameters, machine_.switches, image)) {
        return kErrorInvalidParameter;
    }
    if (const uint32_t error = LocateNewFile(request.path, image.file); error != kErrorSuccess) {
        return error;
    }
    if (const uint32_t error = backEnd_->Create(image); error != kErrorSuccess) {
        return error;
    }
    *handle = MakeHandle(image.file);
    return kErrorSuccess;
}

uint32_t VirtualDiskService::Attach(kk::NtHandle handle, uint32_t flags, uint32_t providerFlags,
                                    const AttachVirtualDiskParameters* parameters, const void* overlapped)
{
    const std::shared_ptr<Image> image = FindImage(handle);
    if (image == nullptr) {
        return kErrorInvalidHandle;
    }
    if ((flags & ~kKnownAttachFlags) != 0 || providerFlags != 0 ||
        (parameters != nullptr && parameters->version != 1)) {
        return kErrorInvalidParameter;
    }
    if (overlapped != nullptr) {
        return kErrorNotSupported;
    }
    if (image->attachment) {
        return kErrorSharingViolation;
    }
    auto hold = machine_.drives.shares.TryHold(image->file.string(), kFileReadData | kFileWriteData, 0);
    if (hold == nullptr) {
        return kErrorSharingViolation;
    }
    OpenedImage opened;
    if (const uint32_t error = backEnd_->Open(image->file, opened); error != kErrorSuccess) {
        return error;
    }
    const uint32_t number = NextDiskNumber(machine_);
    const bool readOnly = (flags & kAttachVirtualDiskFlagReadOnly) != 0;
    machine_.AddDisk(std::move(opened.storage),
                     {.sectorSize = opened.sectorBytes, .number = number, .readOnly = readOnly});
    const bool permanent = (flags & kAttachVirtualDiskFlagPermanentLifetime) != 0;
    image->attachment.emplace(number, permanent, std::move(hold));
    return kErrorSuccess;
}

uint32_t VirtualDiskService::Detach(kk::NtHandle handle, uint32_t flags, uint32_t providerFlags)
{
    const std::shared_ptr<Image> image = FindImage(handle);
    if (image == nullptr) {
        return kErrorInvalidHandle;
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
    const std::shared_ptr<Image> image = FindImage(handle);
    if (image == nullptr) {
        return kErrorInvalidHandle;
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
    const std::u16string truth = u"\\\\.\\PhysicalDrive" + Utf16(std::to_string(image->attachment->diskNumber));
    const std::u16string text = behaviour.physicalPath.value_or(truth);
    const size_t units = text.size() + (behaviour.terminatesPath ? 1 : 0);
    const uint32_t room = std::exchange(*sizeInBytes, static_cast<uint32_t>(units * sizeof(char16_t)));
    if (room < *sizeInBytes) {
        return kErrorInsufficientBuffer;
    }
    std::memcpy(path, text.c_str(), *sizeInBytes);
    return kErrorSuccess;
}

std::string VirtualDiskService::NameOf(kk::NtHandle handle) const
{
    const std::shared_ptr<Image> image = FindImage(handle);
    return image != nullptr ? image->file.string() : std::string();
}

std::optional<uint32_t> VirtualDiskService::DiskNumberOf(const std::filesystem::path& file) const
{
    const auto found = images_.find(file);
    if (found == images_.end() || !found->second->attachment) {
        return std::nullopt;
    }
    return found->second->attachment->diskNumber;
}

void VirtualDiskService::SetPhysicalPathText(std::u16string text, bool terminated)
{
    behaviour.physicalPath = std::move(text);
    behaviour.terminatesPath = terminated;
}

/// Finds the host's name for a file that is to be created, and sees that it can be.
uint32_t VirtualDiskService::LocateNewFile(const char16_t* path, std::filesystem::path& file) const
{
    std::u16string windowsPath = path;
    std::replace(windowsPath.begin(), windowsPath.end(), u'/', u'\\');
    const std::optional<std::string> hostPath = machine_.drives.HostPath(windowsPath);
    if (!hostPath) {
        return kErrorPathNotFound;
    }
    file = *hostPath;
    std::error_code ignored;
    if (!std::filesystem::is_directory(file.parent_path(), ignored)) {
        return kErrorPathNotFound;
    }
    const bool fileExists = std::filesystem::exists(file, ignored) && !backEnd_->TakesExistingFiles();
    return fileExists || backEnd_->Knows(file) ? kErrorFileExists : kErrorSuccess;
}

kk::NtHandle VirtualDiskService::MakeHandle(const std::filesystem::path& file)
{
    std::shared_ptr<Image>& image = images_[file];
    if (image == nullptr) {
        image = std::make_shared<Image>(file);
    }
    ++image->handleCount;
    // Handles outlive the service while a machine is taken down.
    const auto close = [service = weak_from_this(), image = image.get()] {
        if (const auto alive = service.lock()) {
            alive->CloseHandle(*image);
        }
    };
    return machine_.handles.AddServiceHandle(kHandleKind, close, image);
}

void VirtualDiskService::CloseHandle(Image& image)
{
    if (--image.handleCount != 0) {
        return;
    }
    if (image.attachment && !image.attachment->permanent) {
        TakeDiskOut(image);
    }
    if (!image.attachment) {
        const std::filesystem::path file = image.file;
        images_.erase(file);
    }
}

std::shared_ptr<VirtualDiskService::Image> VirtualDiskService::FindImage(kk::NtHandle handle) const
{
    return machine_.handles.FindService<Image>(handle, kHandleKind);
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
