#include <algorithm>

#include "machine/disk_device.h"
#include "machine/drive_volume_names.h"
#include "machine/machine.h"
#include "machine/text.h"
#include "machine/virtual_disk_service.h"

// What disks stand on.

namespace machine {
namespace {

constexpr uint32_t kKnownQueryFlags =
    kk::kGetStorageDependencyFlagHostVolumes | kk::kGetStorageDependencyFlagDiskHandle;

// What an entry says of its image.
constexpr uint32_t kDependentDiskReadOnly = 0x4;
constexpr uint32_t kDependentDiskNoDriveLetter = 0x80;
constexpr uint32_t kDependentDiskParent = 0x100;
constexpr uint32_t kDependentDiskPermanentLifetime = 0x400;

uint32_t TypeFlagsOf(uint32_t attachFlags)
{
    return ((attachFlags & kAttachVirtualDiskFlagReadOnly) != 0 ? kDependentDiskReadOnly : 0) |
           ((attachFlags & kk::kAttachVirtualDiskFlagNoDriveLetter) != 0 ? kDependentDiskNoDriveLetter : 0) |
           ((attachFlags & kk::kAttachVirtualDiskFlagPermanentLifetime) != 0 ? kDependentDiskPermanentLifetime : 0);
}

/// `\\?\Volume{...}\`.
std::u16string HostVolumeName(const Machine& machine, char16_t letter)
{
    const auto volume = machine.volumes.FindByLetter(letter);
    const std::u16string name = volume != nullptr ? u"Volume" + BracedGuid(volume->Guid()) : VolumeNameOfDrive(letter);
    return u"\\\\?\\" + name + u"\\";
}

}  // namespace

uint32_t VirtualDiskService::GetDependencies(kk::NtHandle disk, uint32_t flags, uint32_t size,
                                             kk::StorageDependencyInfo* answer, uint32_t* sizeUsed)
{
    const OpenFile* const file = machine_.handles.FindFile(disk);
    if (file == nullptr) {
        return kErrorInvalidHandle;
    }
    if (answer == nullptr || sizeUsed == nullptr || (flags & ~kKnownQueryFlags) != 0) {
        return kErrorInvalidParameter;
    }
    if ((flags & kk::kGetStorageDependencyFlagDiskHandle) == 0) {
        return kErrorNotSupported;
    }
    if (size < sizeof(kk::StorageDependencyInfo)) {
        *sizeUsed = sizeof(kk::StorageDependencyInfo);
        return kErrorInsufficientBuffer;
    }
    if (answer->version != kk::kStorageDependencyInfoVersion2) {
        return kErrorInvalidParameter;
    }
    DependencyBehaviour& deviation = behaviour.dependency;
    if (deviation.failure != 0) {
        return deviation.failure;
    }
    const std::shared_ptr<Image> image = FindImageBehind(*file);
    if (image == nullptr) {
        return kErrorNotVirtualDisk;
    }
    const std::vector<StorageDependency> chain = DependenciesOf(*image);
    const uint32_t needed = DependencyAnswerBytes(chain);
    const bool isRefused = deviation.refusals != 0;
    if (isRefused || size < needed) {
        deviation.refusals -= isRefused ? 1 : 0;
        *sizeUsed = deviation.neededBytes.value_or(needed);
        return kErrorInsufficientBuffer;
    }
    WriteDependencyAnswer(chain, answer);
    *sizeUsed = needed;
    return kErrorSuccess;
}

/// The image that an open disk shows; null when it is another kind of object, or shows none.
std::shared_ptr<VirtualDiskService::Image> VirtualDiskService::FindImageBehind(const OpenFile& file) const
{
    const auto* const device = dynamic_cast<const DiskDevice*>(file.device.get());
    const auto found = std::find_if(images_.begin(), images_.end(), [&](const auto& entry) {
        const std::optional<Attachment>& attachment = entry.second->attachment;
        return device != nullptr && attachment &&
               machine_.FindDisk(attachment->diskNumber) == &device->UnderlyingDisk();
    });
    return found != images_.end() ? found->second : nullptr;
}

/// The image first, then what it stands on.
std::vector<StorageDependency> VirtualDiskService::DependenciesOf(const Image& image) const
{
    if (behaviour.dependency.hasNoEntries) {
        return {};
    }
    const uint32_t number = image.attachment->diskNumber;
    std::vector<StorageDependency> chain = {
        {TypeFlagsOf(image.attachment->flags), 1, TextsFor(number, image.windowsPath)}};
    for (const std::filesystem::path& parent : image.parents) {
        const auto level = static_cast<uint32_t>(chain.size() + 1);
        chain.push_back({kDependentDiskParent | kDependentDiskReadOnly, level,
                         TextsFor(number, HostDrives::WindowsPath(parent.string()))});
    }
    chain.front().texts = behaviour.dependency.texts.value_or(chain.front().texts);
    return chain;
}

/// What names an image: the volume and the path on it. `windowsPath` has a drive letter.
DependencyTexts VirtualDiskService::TextsFor(uint32_t diskNumber, const std::u16string& windowsPath) const
{
    const size_t colon = windowsPath.find(u':');
    return {.deviceName = PhysicalPathOf(diskNumber),
            .hostVolumeName = HostVolumeName(machine_, windowsPath[colon - 1]),
            .relativePath = windowsPath.substr(colon + 1)};
}

}  // namespace machine
