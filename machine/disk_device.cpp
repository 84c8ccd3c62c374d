#include "machine/disk_device.h"

#include <algorithm>
#include <cstring>

#include "disk/volume_controls.h"
#include "machine/machine.h"

namespace machine {

namespace {

constexpr uint32_t kFixedMedia = 12;
constexpr uint32_t kTracksPerCylinder = 255;
constexpr uint32_t kSectorsPerTrack = 63;
constexpr uint32_t kSmallestGeometryAnswer = 32;
constexpr uint32_t kWholeGeometryAnswer = 112;
constexpr uint32_t kSmallestLayoutAnswer = sizeof(kk::DriveLayoutInformationEx) + sizeof(kk::PartitionInformationEx);

}  // namespace

IoResult DiskDevice::Read(OpenFile& /*file*/, uint64_t offset, std::span<uint8_t> into)
{
    const Status status = disk_->Read(offset, into);
    return {status, status == kSuccess ? into.size() : 0};
}

IoResult DiskDevice::Write(OpenFile& /*file*/, uint64_t offset, std::span<const uint8_t> from)
{
    if (machine_.switches.mountedWriteProtection && HitsMountedVolume(offset, from.size())) {
        return {kAccessDenied, 0};
    }
    const Status status = disk_->Write(offset, from);
    return {status, status == kSuccess ? from.size() : 0};
}

bool DiskDevice::HitsMountedVolume(uint64_t offset, uint64_t length) const
{
    const auto& all = machine_.volumes.All();
    return std::any_of(all.begin(), all.end(), [&](const std::shared_ptr<Volume>& volume) {
        return volume->Covers(disk_->Number(), offset, length) && volume->Opens().IsGuarded() &&
               volume->RecognisedFileSystem() != FileSystem::None;
    });
}

ControlAnswer DiskDevice::Control(OpenFile& /*file*/, const ControlRequest& request)
{
    if (!disk_->IsPresent()) {
        return {kNoSuchDevice};
    }
    switch (request.code) {
    case kk::kIoctlDiskGetDriveGeometryEx:
        return AnswerGeometry(request);
    case kk::kIoctlDiskGetDriveLayoutEx:
        return AnswerLayout(request);
    case kk::kIoctlDiskGetLengthInfo:
        return AnswerLength(request);
    case kk::kIoctlDiskUpdateProperties:
        disk_->Rescan();
        return {};
    case kk::kIoctlDiskGrowPartition:
        return AnswerGrowth(request);
    case kk::kFsctlLockVolume:
    case kFsctlUnlockVolume:
    case kk::kFsctlDismountVolume:
        return {};  // a disk as a whole has no file system that would mind
    default:
        return {kInvalidDeviceRequest};
    }
}

ControlAnswer DiskDevice::AnswerGeometry(const ControlRequest& request) const
{
    if (request.outputRoom < kSmallestGeometryAnswer) {
        return {kBufferTooSmall};
    }
    if (disk_->behaviour.noMedia) {
        return {kNoMediaInDevice};
    }
    if (disk_->behaviour.geometryFails) {
        return {kIoDeviceError};
    }
    kk::DiskGeometryEx geometry = {};
    geometry.mediaType = kFixedMedia;
    geometry.tracksPerCylinder = kTracksPerCylinder;
    geometry.sectorsPerTrack = kSectorsPerTrack;
    geometry.bytesPerSector = disk_->behaviour.reportsZeroBytesPerSector ? 0 : disk_->SectorSize();
    geometry.diskSize = static_cast<int64_t>(disk_->Size());
    geometry.cylinders = geometry.diskSize / disk_->SectorSize() / kTracksPerCylinder / kSectorsPerTrack;
    ControlAnswer answer = {kSuccess, BytesOf(geometry)};
    answer.output.resize(std::min(request.outputRoom, kWholeGeometryAnswer));
    return answer;
}

ControlAnswer DiskDevice::AnswerLayout(const ControlRequest& request)
{
    if (disk_->behaviour.noMedia) {
        return {kNoMediaInDevice};
    }
    if (disk_->behaviour.layoutFailures != 0) {
        --disk_->behaviour.layoutFailures;
        return {disk_->behaviour.layoutFailure};
    }
    if (request.outputRoom < kSmallestLayoutAnswer) {
        return {kInfoLengthMismatch};
    }
    const Layout& layout = disk_->CachedLayout();
    ControlAnswer answer = {kSuccess, BytesOf(layout.header)};
    for (const kk::PartitionInformationEx& partition : layout.partitions) {
        const std::vector<uint8_t> bytes = BytesOf(partition);
        answer.output.insert(answer.output.end(), bytes.begin(), bytes.end());
    }
    return answer.output.size() > request.outputRoom ? ControlAnswer{kBufferTooSmall} : answer;
}

ControlAnswer DiskDevice::AnswerLength(const ControlRequest& request) const
{
    if (request.outputRoom < sizeof(kk::GetLengthInformation)) {
        return {kBufferTooSmall};
    }
    if (disk_->behaviour.noMedia) {
        return {kNoMediaInDevice};
    }
    return {kSuccess, BytesOf(kk::GetLengthInformation{static_cast<int64_t>(disk_->Size())})};
}

ControlAnswer DiskDevice::AnswerGrowth(const ControlRequest& request)
{
    kk::DiskGrowPartition growth = {};
    if (request.input.size() < sizeof(growth)) {
        return {kInfoLengthMismatch};
    }
    std::memcpy(&growth, request.input.data(), sizeof(growth));
    return {disk_->GrowPartition(growth.partitionNumber, growth.bytesToGrow)};
}

/// A whole disk counts as a volume that no file system claims.
Status DiskDevice::QueryFileSystemName(OpenFile& /*file*/, std::u16string& name)
{
    name = SystemNameOf(FileSystem::None);
    return kSuccess;
}

Status DiskDevice::Flush(OpenFile& file)
{
    if ((file.access & (kFileWriteData | kFileAppendData)) == 0) {
        return kAccessDenied;
    }
    return disk_->Flush() ? kSuccess : kIoDeviceError;
}

}  // namespace machine
