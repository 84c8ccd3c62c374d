#include "machine/volume_device.h"

#include <algorithm>

#include "disk/volume_controls.h"

namespace machine {

namespace {

constexpr uint64_t kExtentsHeaderBytes = 8;

}  // namespace

IoResult VolumeDevice::Read(OpenFile& file, uint64_t offset, std::span<uint8_t> into)
{
    return volume_->IsPresent() ? VolumeViewDevice::Read(file, offset, into) : IoResult{kNoSuchDevice, 0};
}

IoResult VolumeDevice::Write(OpenFile& /*file*/, uint64_t offset, std::span<const uint8_t> from)
{
    if (!volume_->IsPresent()) {
        return {kNoSuchDevice, 0};
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
    if (TheSwitches().mountedWriteProtection && volume_->RecognisedFileSystem() != FileSystem::None) {
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
    return request.code == kk::kIoctlVolumeGetVolumeDiskExtents ? AnswerExtents(request)
                                                                : VolumeViewDevice::Control(file, request);
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
