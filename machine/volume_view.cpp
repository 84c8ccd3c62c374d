#include "machine/volume_view.h"

#include <algorithm>

#include "backup/volume_bitmap.h"
#include "disk/volume_controls.h"
#include "machine/bitmap_answer.h"
#include "machine/file_system.h"
#include "machine/ntfs_reader.h"

namespace machine {

namespace {

/// NTFS_EXTENDED_VOLUME_DATA, which newer systems append.
struct ExtendedData {
    uint32_t byteCount;
    uint16_t majorVersion;
    uint16_t minorVersion;
    uint32_t bytesPerPhysicalSector;
    uint16_t lfsMajorVersion;
    uint16_t lfsMinorVersion;
    uint32_t maxDeviceTrimExtentCount;
    uint32_t maxDeviceTrimByteCount;
    uint32_t maxVolumeTrimExtentCount;
    uint32_t maxVolumeTrimByteCount;
};
static_assert(sizeof(ExtendedData) == 32);

}  // namespace

/// A backslash after the device's name means the root folder.
Status VolumeViewDevice::Open(OpenFile& file, std::u16string_view rest)
{
    if (rest.empty()) {
        return kSuccess;
    }
    const bool isRoot = rest == u"\\";
    return isRoot && (file.options & kk::kFileNonDirectoryFile) != 0 ? kFileIsADirectory : kObjectNameNotFound;
}

uint64_t VolumeViewDevice::BoundaryBytes()
{
    if (switches_.ntfsBoundary) {
        if (const std::optional<NtfsGeometry> geometry = NtfsReader::ReadGeometry(*view_)) {
            return geometry->totalSectors * geometry->bytesPerSector;
        }
    }
    return view_->Length();
}

IoResult VolumeViewDevice::Read(OpenFile& /*file*/, uint64_t offset, std::span<uint8_t> into)
{
    if (offset % view_->SectorSize() != 0 || into.size() % view_->SectorSize() != 0) {
        return {kInvalidParameter, 0};
    }
    if (into.empty()) {
        return {};
    }
    const uint64_t boundary = BoundaryBytes();
    if (offset >= boundary) {
        return {kEndOfFile, 0};
    }
    const std::span<uint8_t> inside = into.first(std::min<uint64_t>(into.size(), boundary - offset));
    return view_->Read(offset, inside) ? IoResult{kSuccess, inside.size()} : IoResult{kIoDeviceError, 0};
}

IoResult VolumeViewDevice::Write(OpenFile& /*file*/, uint64_t /*offset*/, std::span<const uint8_t> /*from*/)
{
    return {kMediaWriteProtected, 0};
}

ControlAnswer VolumeViewDevice::Control(OpenFile& /*file*/, const ControlRequest& request)
{
    switch (request.code) {
    case kk::kIoctlDiskGetLengthInfo:
        return AnswerLength(request);
    case kk::kFsctlGetNtfsVolumeData:
        return AnswerNtfsData(request);
    case kk::kFsctlGetVolumeBitmap:
        return AnswerBitmap(request);
    default:
        return {kInvalidDeviceRequest};
    }
}

ControlAnswer VolumeViewDevice::AnswerLength(const ControlRequest& request)
{
    if (answers_->lengthInfo) {
        return answers_->lengthInfo(request);
    }
    if (request.outputRoom < sizeof(kk::GetLengthInformation)) {
        return {kBufferTooSmall};
    }
    return {kSuccess, BytesOf(kk::GetLengthInformation{static_cast<int64_t>(view_->Length())})};
}

ControlAnswer VolumeViewDevice::AnswerNtfsData(const ControlRequest& request)
{
    if (answers_->ntfsData) {
        return answers_->ntfsData(request);
    }
    NtfsReader reader(*view_);
    if (!reader.Open()) {
        return {kInvalidDeviceRequest};
    }
    if (request.outputRoom < sizeof(kk::NtfsVolumeData)) {
        return {kBufferTooSmall};
    }
    const std::optional<kk::NtfsVolumeData> data = reader.ReadVolumeData();
    if (!data) {
        return {kIoDeviceError};
    }
    ControlAnswer answer = {kSuccess, BytesOf(*data)};
    const ExtendedData extended = {sizeof(ExtendedData), 3, 1, view_->SectorSize(), 2, 0, 0, 0, 0, 0};
    const std::vector<uint8_t> appended = BytesOf(extended);
    answer.output.insert(answer.output.end(), appended.begin(), appended.end());
    answer.output.resize(std::min<size_t>(answer.output.size(), request.outputRoom));
    return answer;
}

ControlAnswer VolumeViewDevice::AnswerBitmap(const ControlRequest& request)
{
    if (answers_->bitmap) {
        return answers_->bitmap(request);
    }
    NtfsReader reader(*view_);
    if (!reader.Open()) {
        return {kInvalidDeviceRequest};
    }
    return AnswerVolumeBitmap(reader, request, switches_.bitmapRoundingUnit);
}

Status VolumeViewDevice::QueryStandardInformation(OpenFile& /*file*/, kk::FileStandardInformation& /*information*/)
{
    return kInvalidParameter;
}

Status VolumeViewDevice::QueryFileSystemName(OpenFile& /*file*/, std::u16string& name)
{
    name = answers_->fileSystemName.value_or(SystemNameOf(RecogniseFileSystem(*view_)));
    return kSuccess;
}

Status VolumeViewDevice::Flush(OpenFile& file)
{
    return (file.access & (kFileWriteData | kFileAppendData)) != 0 ? kSuccess : kAccessDenied;
}

}  // namespace machine
