#include "machine/volume_resizer.h"

#include <cstring>

#include "disk/volume_controls.h"
#include "machine/ntfs_reader.h"
#include "machine/ntfs_resizer.h"

namespace machine {

namespace {

/// The last sector holds the copy of the boot sector and belongs to no cluster.
uint64_t ClustersIn(const NtfsGeometry& geometry, uint64_t sectors)
{
    return (sectors - 1) / (geometry.bytesPerCluster / geometry.bytesPerSector);
}

bool CanBeResized(FileSystem fileSystem)
{
    return fileSystem == FileSystem::Ntfs || fileSystem == FileSystem::None;
}

Status PrepareShrink(Volume& volume, uint64_t open, int64_t sectors)
{
    uint64_t present = volume.Length() / volume.SectorSize();
    if (volume.RecognisedFileSystem() == FileSystem::Ntfs) {
        const std::optional<NtfsGeometry> geometry = NtfsReader::ReadGeometry(volume);
        if (!geometry) {
            return kDiskCorruptError;
        }
        present = geometry->totalSectors + 1;
    }
    const bool makesSense = sectors > 0 && static_cast<uint64_t>(sectors) <= present;
    return makesSense && volume.Opens().PrepareShrink(open, static_cast<uint64_t>(sectors)) ? kSuccess
                                                                                            : kInvalidParameter;
}

Status ShrinkNtfs(Volume& volume, uint64_t sectors, bool movesNothing)
{
    NtfsReader reader(volume);
    if (!reader.Open()) {
        return kDiskCorruptError;
    }
    const NtfsGeometry& geometry = reader.Geometry();
    if (sectors == geometry.totalSectors + 1) {
        return kSuccess;
    }
    if (movesNothing) {
        const std::optional<uint64_t> usedEnd = reader.FindUsedEnd();
        if (!usedEnd) {
            return kIoDeviceError;
        }
        if (*usedEnd > ClustersIn(geometry, sectors)) {
            return kAlreadyCommitted;
        }
    }
    return ResizeNtfs(volume, geometry, sectors);
}

Status CommitShrink(Volume& volume, uint64_t open, bool movesNothing)
{
    const std::optional<uint64_t> sectors = volume.Opens().PreparedShrink(open);
    if (!sectors) {
        return kInvalidParameter;
    }
    const bool isNtfs = volume.RecognisedFileSystem() == FileSystem::Ntfs;
    const Status status = isNtfs ? ShrinkNtfs(volume, *sectors, movesNothing) : kSuccess;
    if (status == kSuccess) {
        volume.Opens().DropShrink(open);
    }
    return status;
}

}  // namespace

Status ExtendFileSystem(Volume& volume, const ControlRequest& request)
{
    int64_t sectors = 0;
    const FileSystem fileSystem = volume.RecognisedFileSystem();
    if (!CanBeResized(fileSystem)) {
        return kInvalidDeviceRequest;
    }
    if (request.input.size() < sizeof(sectors)) {
        return kInvalidParameter;
    }
    if (fileSystem == FileSystem::None) {
        return kSuccess;
    }
    std::memcpy(&sectors, request.input.data(), sizeof(sectors));
    const std::optional<NtfsGeometry> geometry = NtfsReader::ReadGeometry(volume);
    if (!geometry) {
        return kDiskCorruptError;
    }
    const auto wanted = static_cast<uint64_t>(sectors);
    if (sectors <= 0 || wanted > volume.Length() / geometry->bytesPerSector ||
        ClustersIn(*geometry, wanted) <= geometry->totalClusters) {
        return kInvalidParameter;
    }
    return ResizeNtfs(volume, *geometry, wanted);
}

Status ShrinkFileSystem(Volume& volume, uint64_t open, const ControlRequest& request, bool movesNothing)
{
    kk::ShrinkVolumeInformation information = {};
    if (!CanBeResized(volume.RecognisedFileSystem())) {
        return kInvalidDeviceRequest;
    }
    if (request.input.size() < sizeof(information)) {
        return kInvalidParameter;
    }
    std::memcpy(&information, request.input.data(), sizeof(information));
    if (information.flags != 0) {
        return kInvalidParameter;
    }
    if (information.request == kShrinkAbort) {
        return volume.Opens().DropShrink(open) ? kSuccess : kInvalidParameter;
    }
    switch (information.request) {
    case kk::ShrinkRequest::Prepare:
        return PrepareShrink(volume, open, information.newNumberOfSectors);
    case kk::ShrinkRequest::Commit:
        return CommitShrink(volume, open, movesNothing);
    default:
        return kInvalidParameter;
    }
}

}  // namespace machine
