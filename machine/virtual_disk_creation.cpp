#include "machine/virtual_disk_creation.h"

namespace machine {
namespace {

constexpr uint64_t kMebibyte = 1 << 20;
constexpr uint64_t kMaximumSizeLimit = 64ull << 40;  // the format's own limit
constexpr uint64_t kMinimumSize = 3 * kMebibyte;
constexpr uint32_t kDefaultBlockBytes = 32 << 20;

bool IsSectorSize(uint32_t bytes)
{
    return bytes == 512 || bytes == 4096;
}

bool NamesNothingElse(const kk::CreateVirtualDiskParameters& parameters)
{
    return parameters.openFlags == 0 && parameters.parentVirtualStorageType.deviceId == 0 &&
           parameters.sourceVirtualStorageType.deviceId == 0;
}

}  // namespace

bool ReadImageShape(const kk::CreateVirtualDiskParameters& parameters, const Switches& switches, NewImage& image)
{
    if (!NamesNothingElse(parameters)) {
        return false;
    }
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

bool LeavesShapeToParent(const kk::CreateVirtualDiskParameters& parameters)
{
    return NamesNothingElse(parameters) && parameters.maximumSize == 0 && parameters.blockSizeInBytes == 0 &&
           parameters.sectorSizeInBytes == 0 && parameters.physicalSectorSizeInBytes == 0;
}

}  // namespace machine
