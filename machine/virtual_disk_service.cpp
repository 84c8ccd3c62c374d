#include "machine/virtual_disk_service.h"

#include <algorithm>
#include <array>
#include <utility>

#include "machine/machine.h"
#include "machine/text.h"
#include "machine/virtual_disk_creation.h"

// Images and the handles that lead to them.

namespace machine {
namespace {

constexpr char kHandleKind[] = "virtual disk";
constexpr size_t kLongestChain = 256;

bool IsVhdx(const kk::VirtualStorageType& type)
{
    return type.deviceId == kk::kVirtualStorageTypeDeviceVhdx &&
           type.vendorId == kk::kVirtualStorageTypeVendorMicrosoft;
}

bool IsLeftToService(const kk::VirtualStorageType& type)
{
    return type.deviceId == kk::kVirtualStorageTypeDeviceUnknown && type.vendorId == kk::Guid{};
}

bool HasKnownExtension(const std::filesystem::path& file)
{
    constexpr std::array kKnown = {u".vhd", u".vhdx", u".iso"};
    const std::u16string extension = file.extension().u16string();
    return std::any_of(kKnown.begin(), kKnown.end(),
                       [&](std::u16string_view known) { return EqualsIgnoreCase(known, extension); });
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
    if (!IsVhdx(*request.storageType)) {
        return kErrorVirtualDiskProviderNotFound;
    }
    // Version 2 takes the place of access masks.
    if (parameters->version != kk::kCreateVirtualDiskVersion2 || request.accessMask != kk::kVirtualDiskAccessNone ||
        request.flags != kk::kCreateVirtualDiskFlagNone || request.providerFlags != 0) {
        return kErrorInvalidParameter;
    }
    if (parameters->sourcePath != nullptr || request.overlapped != nullptr) {
        return kErrorNotSupported;
    }
    const bool isOverlay = parameters->parentPath != nullptr;
    NewImage image;
    if (isOverlay ? !LeavesShapeToParent(*parameters) : !ReadImageShape(*parameters, machine_.switches, image)) {
        return kErrorInvalidParameter;
    }
    Location where;
    if (const uint32_t error = Locate(request.path, where); error != kErrorSuccess) {
        return error;
    }
    if ((IsOnHost(where.file) && !backEnd_->TakesExistingFiles()) || backEnd_->Knows(where.file)) {
        return kErrorFileExists;
    }
    image.file = where.file;
    std::vector<std::filesystem::path> parents;
    const uint32_t error =
        isOverlay ? CreateOverlay(where.file, parameters->parentPath, parents) : backEnd_->Create(image);
    if (error == kErrorSuccess) {
        *handle = MakeHandle(where, std::move(parents), kVirtualDiskAccessAll);
    }
    return error;
}

uint32_t VirtualDiskService::CreateOverlay(const std::filesystem::path& file, const char16_t* parentPath,
                                           std::vector<std::filesystem::path>& parents)
{
    Location parent;
    if (const uint32_t error = LocateExisting(parentPath, parent); error != kErrorSuccess) {
        return error;
    }
    if (!LetsIn(parent.file, kFileReadData)) {
        return kErrorSharingViolation;
    }
    parents = {parent.file};
    if (const uint32_t error = FindParents(parent.file, parents); error != kErrorSuccess) {
        return error;
    }
    return backEnd_->CreateOverlay(file, parent.file);
}

uint32_t VirtualDiskService::Open(const OpenRequest& request, kk::NtHandle* handle)
{
    if (request.storageType == nullptr || request.path == nullptr || handle == nullptr) {
        return kErrorInvalidParameter;
    }
    if (!IsVhdx(*request.storageType) && !IsLeftToService(*request.storageType)) {
        return kErrorVirtualDiskProviderNotFound;
    }
    if (request.flags != kk::kOpenVirtualDiskFlagNone || request.accessMask == kk::kVirtualDiskAccessNone ||
        (request.accessMask & ~kVirtualDiskAccessAll) != 0) {
        return kErrorInvalidParameter;
    }
    if (request.parameters != nullptr) {
        return kErrorNotSupported;
    }
    Location where;
    if (const uint32_t error = LocateExisting(request.path, where); error != kErrorSuccess) {
        return error;
    }
    if (machine_.switches.virtualDisksByExtension && !IsVhdx(*request.storageType) && !HasKnownExtension(where.file)) {
        return kErrorVirtualDiskProviderNotFound;
    }
    std::vector<std::filesystem::path> parents;
    if (DiskNumberOf(where.file)) {
        if ((request.accessMask & kk::kVirtualDiskAccessDetach) == 0) {
            return kErrorSharingViolation;
        }
    } else if (!LetsIn(where.file, kFileReadData)) {
        return kErrorSharingViolation;
    } else if (const uint32_t error = FindParents(where.file, parents); error != kErrorSuccess) {
        return error;
    }
    *handle = MakeHandle(where, std::move(parents), request.accessMask);
    return kErrorSuccess;
}

std::string VirtualDiskService::NameOf(kk::NtHandle handle) const
{
    const auto opened = machine_.handles.FindService<OpenedHandle>(handle, kHandleKind);
    return opened != nullptr ? opened->image->file.string() : std::string();
}

/// Finds the host's name for a file in a folder that exists.
uint32_t VirtualDiskService::Locate(const char16_t* path, Location& where) const
{
    where.windowsPath = path;
    std::replace(where.windowsPath.begin(), where.windowsPath.end(), u'/', u'\\');
    const std::optional<std::string> hostPath = machine_.drives.HostPath(where.windowsPath);
    if (!hostPath) {
        return kErrorPathNotFound;
    }
    where.file = *hostPath;
    std::error_code ignored;
    return std::filesystem::is_directory(where.file.parent_path(), ignored) ? kErrorSuccess : kErrorPathNotFound;
}

uint32_t VirtualDiskService::LocateExisting(const char16_t* path, Location& where) const
{
    if (const uint32_t error = Locate(path, where); error != kErrorSuccess) {
        return error;
    }
    std::error_code ignored;
    if (std::filesystem::is_directory(where.file, ignored)) {
        return kErrorAccessDenied;
    }
    return IsOnHost(where.file) || backEnd_->Knows(where.file) ? kErrorSuccess : kErrorFileNotFound;
}

/// Checks that a file is an image, and adds what it stands on.
uint32_t VirtualDiskService::FindParents(std::filesystem::path file, std::vector<std::filesystem::path>& parents)
{
    for (size_t count = 0; count < kLongestChain; ++count) {
        ImageFacts facts;
        if (const uint32_t error = backEnd_->Inspect(file, facts); error != kErrorSuccess) {
            return error;
        }
        if (facts.parent.empty()) {
            return kErrorSuccess;
        }
        parents.push_back(facts.parent);
        file = facts.parent;
    }
    return kErrorFileCorrupt;
}

/// Whether those who have the file open share it with somebody who wants so much.
bool VirtualDiskService::LetsIn(const std::filesystem::path& file, uint32_t fileAccess) const
{
    constexpr uint32_t kShareAll = kk::kFileShareRead | kk::kFileShareWrite | kFileShareDelete;
    return machine_.drives.shares.TryHold(file.string(), fileAccess, kShareAll) != nullptr;
}

kk::NtHandle VirtualDiskService::MakeHandle(const Location& where, std::vector<std::filesystem::path> parents,
                                            uint32_t access)
{
    std::shared_ptr<Image>& image = images_[where.file];
    if (image == nullptr) {
        image = std::make_shared<Image>(where.file, where.windowsPath, std::move(parents));
    }
    ++image->handleCount;
    // Handles outlive the service while a machine is taken down.
    const auto close = [service = weak_from_this(), image = image.get()] {
        if (const auto alive = service.lock()) {
            alive->CloseHandle(*image);
        }
    };
    return machine_.handles.AddServiceHandle(kHandleKind, close, std::make_shared<OpenedHandle>(image, access));
}

void VirtualDiskService::CloseHandle(Image& image)
{
    if (--image.handleCount != 0) {
        return;
    }
    const bool isPermanent =
        image.attachment && (image.attachment->flags & kk::kAttachVirtualDiskFlagPermanentLifetime) != 0;
    if (image.attachment && !isPermanent) {
        TakeDiskOut(image);
    }
    ForgetIfUnused(image);
}

void VirtualDiskService::ForgetIfUnused(const Image& image)
{
    if (image.handleCount == 0 && !image.attachment) {
        const std::filesystem::path file = image.file;
        images_.erase(file);
    }
}

/// The image behind a handle that was opened for any of `neededAccess`.
uint32_t VirtualDiskService::UseHandle(kk::NtHandle handle, uint32_t neededAccess, std::shared_ptr<Image>& image) const
{
    const auto opened = machine_.handles.FindService<OpenedHandle>(handle, kHandleKind);
    if (opened == nullptr) {
        return kErrorInvalidHandle;
    }
    if ((opened->access & neededAccess) == 0) {
        return kErrorAccessDenied;
    }
    image = opened->image;
    return kErrorSuccess;
}

}  // namespace machine
