#include "core/nt_device_file.h"

#include "core/checked_math.h"
#include "core/memory.h"
#include "core/nt.h"
#include "core/status.h"

namespace kk {

namespace {

/// The native calls take offsets as signed numbers and give -1 and -2 meanings of their own, which the rest of a
/// transfer across the limit must not reach. The system refuses all others below zero with the same status.
bool IsByteRange(uint64_t offset, uint32_t length)
{
    constexpr auto limit = static_cast<uint64_t>(INT64_MAX);
    return length == 0 || (offset <= limit && length <= limit - offset);
}

}  // namespace

void NtDeviceFile::Destroy(bool freeObject)
{
    if (handle_ != nullptr) {
        (void)NtClose(handle_);
        handle_ = nullptr;
    }
    if (freeObject) {
        MemFree(this);
    }
}

KK_STATUS NtDeviceFile::ReadAt(uint64_t offset, void* buffer, uint32_t length)
{
    if (!IsByteRange(offset, length)) {
        return KK_STATUS_INVALID_PARAMETER;
    }
    for (uint32_t done = 0; done < length;) {
        IoStatusBlock ioStatus = {};
        const auto position = static_cast<int64_t>(offset + done);
        KK_TRY(NtReadFile(handle_, nullptr, nullptr, nullptr, &ioStatus, static_cast<uint8_t*>(buffer) + done,
                          length - done, &position, nullptr));
        if (ioStatus.information == 0) {
            return KK_STATUS_END_OF_FILE;
        }
        done += static_cast<uint32_t>(Min(ioStatus.information, uint64_t{length - done}));
    }
    return KK_STATUS_SUCCESS;
}

KK_STATUS NtDeviceFile::WriteAt(uint64_t offset, const void* buffer, uint32_t length)
{
    if (!IsByteRange(offset, length)) {
        return KK_STATUS_INVALID_PARAMETER;
    }
    for (uint32_t done = 0; done < length;) {
        IoStatusBlock ioStatus = {};
        const auto position = static_cast<int64_t>(offset + done);
        KK_TRY(NtWriteFile(handle_, nullptr, nullptr, nullptr, &ioStatus, static_cast<const uint8_t*>(buffer) + done,
                           length - done, &position, nullptr));
        if (ioStatus.information == 0) {
            // On purpose not the status of a read that makes no progress: callers tell the two apart.
            return KK_STATUS_UNSUCCESSFUL;
        }
        done += static_cast<uint32_t>(Min(ioStatus.information, uint64_t{length - done}));
    }
    return KK_STATUS_SUCCESS;
}

KK_STATUS NtDeviceFile::Control(uint32_t code, const void* input, uint32_t inputLength, void* output,
                                uint32_t outputLength, uint32_t* returned)
{
    // A request that is refused early leaves the block as it was, hence the zeros.
    IoStatusBlock ioStatus = {};
    const auto send = code >> 16 == kFileDeviceFileSystem ? NtFsControlFile : NtDeviceIoControlFile;
    const KK_STATUS status =
        send(handle_, nullptr, nullptr, nullptr, &ioStatus, code, input, inputLength, output, outputLength);
    if (returned != nullptr) {
        *returned = static_cast<uint32_t>(ioStatus.information);
    }
    return Failed(status) ? status : KK_STATUS_SUCCESS;
}

KK_STATUS NtDeviceFile::QuerySize(uint64_t* size)
{
    *size = 0;
    IoStatusBlock ioStatus = {};
    FileStandardInformation standard = {};
    const KK_STATUS status =
        NtQueryInformationFile(handle_, &ioStatus, &standard, sizeof(standard), kFileStandardInformationClass);
    if (!Failed(status) && standard.endOfFile > 0) {
        *size = static_cast<uint64_t>(standard.endOfFile);
        return KK_STATUS_SUCCESS;
    }

    // Disks and volumes have no size as files.
    GetLengthInformation answer = {};
    if (!Failed(Control(kIoctlDiskGetLengthInfo, nullptr, 0, &answer, sizeof(answer), nullptr))) {
        *size = static_cast<uint64_t>(answer.length);
    }
    return KK_STATUS_SUCCESS;
}

KK_STATUS NtDeviceFile::Flush()
{
    IoStatusBlock ioStatus = {};
    return NtFlushBuffersFile(handle_, &ioStatus);
}

}  // namespace kk
