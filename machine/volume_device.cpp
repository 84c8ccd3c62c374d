#include "machine/volume_device.h"

#include <algorithm>

#include "disk/volume_controls.h"
#include "machine/volume_resizer.h"

namespace machine {

namespace {

constexpr uint64_t kExtentsHeaderBytes = 8;

/// What the file system answers, as opposed to the volume's driver.
bool IsForFileSystem(uint32_t code)
{
    return code >> 16 == kk::kFileDeviceFileSystem;
}

}  // namespace

Status VolumeDevice::Open(OpenFile& file, std::u16string_view rest)
{
    const Status status = VolumeViewDevice::Open(file, rest);
    return status == kSuccess ? volume_->Opens().Open(file.openNumber) : status;
}

void VolumeDevice::Close(OpenFile& file)
{
    volume_->Opens().Close(file.openNumber);
}

uint64_t VolumeDevice::BoundaryBytes()
{
    const std::optional<uint64_t> kept = volume_->Opens().KeptEnd();
    return kept ? *kept : VolumeViewDevice::BoundaryBytes();
}

IoResult VolumeDevice::Read(OpenFile& file, uint64_t offset, std::span<uint8_t> into)
{
    if (!volume_->IsPresent()) {
        return {kNoSuchDevice, 0};
    }
    if (!volume_->Opens().MayTransfer(file.openNumber)) {
        return {kVolumeDismounted, 0};
    }
    return VolumeViewDevice::Read(file, offset, into);
}

IoResult VolumeDevice::Write(OpenFile& file, uint64_t offset, std::span<const uint8_t> from)
{
    if (!volume_->IsPresent()) {
        return {kNoSuchDevice, 0};
    }
    if (!volume_->Opens().MayTransfer(file.openNumber)) {
        return {kVolumeDismounted, 0};
    }
    if (offset % volume_->SectorSize() != 0 || from.size() % volume_->SectorSize() != 0) {
        return {kInvalidParameter, 0};
    }
    // Beyond the end a write succeeds and does nothing, unlike a read.
    const uint64_t boundary = BoundaryBytes();
    const uint64_t room = offset >= boundary ? 0 : boundary - offset;
    const std::span<const uint8_t> inside = from.first(std::min<uint64_t>(from.size(), room));
    if (inside.empty()) {
        return {};
    }
    if (TheSwitches().mountedWriteProtection && !volume_->Opens().MayWriteDirectly(file.openNumber) &&
        volume_->RecognisedFileSystem() != FileSystem::None) {
        return {kAccessDenied, 0};
    }
    const Status status = volume_->Write(offset, inside);
    return {status, status == kSuccess ? inside.size() : 0};
}

ControlAnswer VolumeDevice::Control(OpenFile& file, const ControlRequest& request)
{
    if (!volume_->IsPresent()) {
        return {kNoSuchDevice};
    }
    if (IsForFileSystem(request.code)) {
        return AnswerFileSystem(file, request);
    }
    return request.code == kk::kIoctlVolumeGetVolumeDiskExtents ? AnswerExtents(request)
                                                                : VolumeViewDevice::Control(file, request);
}

ControlAnswer VolumeDevice::AnswerFileSystem(OpenFile& file, const ControlRequest& request)
{
    VolumeOpens& opens = volume_->Opens();
    if (request.code == kFsctlUnlockVolume) {
        return {opens.Unlock(file.openNumber)};
    }
    if (!opens.SeesFileSystem(file.openNumber)) {
        return {kVolumeDismounted};
    }
    switch (request.code) {
    case kk::kFsctlLockVolume:
    case kk::kFsctlDismountVolume:
        return {LockOrDismount(file, request.code)};
    case kk::kFsctlExtendVolume:
        return {NoteNewEnd(ExtendFileSystem(*volume_, request))};
    case kk::kFsctlShrinkVolume:
        return {NoteNewEnd(ShrinkFileSystem(*volume_, file.openNumber, request, TheSwitches().shrinkMovesNothing))};
    default:
        return VolumeViewDevice::Control(file, request);
    }
}

Status VolumeDevice::LockOrDismount(OpenFile& file, uint32_t code)
{
    VolumeOpens& opens = volume_->Opens();
    const uint64_t end = BoundaryBytes();
    const Status status = code == kk::kFsctlLockVolume ? opens.Lock(file.openNumber) : opens.Dismount(file.openNumber);
    if (status == kSuccess) {
        opens.KeepEnd(end);
    }
    return status;
}

/// A file system that resizes itself knows its end, also while somebody has locked it.
Status VolumeDevice::NoteNewEnd(Status status)
{
    if (status == kSuccess && volume_->Opens().KeptEnd()) {
        volume_->Opens().KeepEnd(VolumeViewDevice::BoundaryBytes());
    }
    return status;
}

Status VolumeDevice::QueryStandardInformation(OpenFile& file, kk::FileStandardInformation& information)
{
    return volume_->Opens().SeesFileSystem(file.openNumber)
               ? VolumeViewDevice::QueryStandardInformation(file, information)
               : kVolumeDismounted;
}

Status VolumeDevice::QueryFileSystemName(OpenFile& file, std::u16string& name)
{
    return volume_->Opens().SeesFileSystem(file.openNumber) ? VolumeViewDevice::QueryFileSystemName(file, name)
                                                            : kVolumeDismounted;
}

Status VolumeDevice::Flush(OpenFile& file)
{
    return volume_->Opens().MayTransfer(file.openNumber) ? VolumeViewDevice::Flush(file) : kVolumeDismounted;
}

ControlAnswer VolumeDevice::AnswerExtents(const ControlRequest& request) const
{
    if (request.outputRoom < kExtentsHeaderBytes + sizeof(kk::DiskExtent)) {
        return {kInvalidParameter};
    }
    const std::vector<Extent>& extents = volume_->Extents();
    const bool allFit = request.outputRoom >= kExtentsHeaderBytes + extents.size() * sizeof(kk::DiskExtent);
    ControlAnswer answer = {allFit ? kSuccess : kBufferOverflow, BytesOf(static_cast<uint64_t>(extents.size()))};
    for (size_t i = 0; i < (allFit ? extents.size() : 1); ++i) {
        kk::DiskExtent record = {};
        record.diskNumber = extents[i].disk->Number();
        record.startingOffset = static_cast<int64_t>(extents[i].start);
        record.extentLength = static_cast<int64_t>(extents[i].length);
        const std::vector<uint8_t> bytes = BytesOf(record);
        answer.output.insert(answer.output.end(), bytes.begin(), bytes.end());
    }
    return answer;
}

}  // namespace machine
