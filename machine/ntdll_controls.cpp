#include <algorithm>
#include <cstring>

#include "core/nt.h"
#include "disk/volume_controls.h"
#include "machine/gate.h"
#include "machine/io_request.h"

using namespace machine;

namespace machine {

namespace {

struct ControlCall {
    CallKind kind;
    const char* name;
    kk::NtHandle handle;
    kk::IoStatusBlock* ioStatus;
    uint32_t code;
    const void* input;
    uint32_t inputLength;
    void* output;
    uint32_t outputLength;
};

/// Bits 14 and 15 of a code are the access that the handle must have, in the order of the access mask.
bool HasControlAccess(const OpenFile& file, uint32_t code)
{
    const uint32_t needed = (code >> 14) & (kFileReadData | kFileWriteData);
    return (file.access & needed) == needed;
}

ControlAnswer AnswerOf(Machine& machine, const CallRecord& record, OpenFile& file, const ControlRequest& request)
{
    if (!HasControlAccess(file, request.code)) {
        return {kAccessDenied};
    }
    if (std::optional<ControlAnswer> answer = machine.OverriddenAnswer(record, request)) {
        return std::move(*answer);
    }
    return file.device->Control(file, request);
}

Status Control(const ControlCall& control)
{
    Machine& machine = Machine::Current();
    const ControlRequest request = {
        control.code, {static_cast<const uint8_t*>(control.input), control.inputLength}, control.outputLength};
    CallRecord call = {.kind = control.kind,
                       .name = control.name,
                       .object = HandleName(machine, control.handle),
                       .code = control.code,
                       .length = control.outputLength,
                       .input = machine.journal.InputToKeep(request.input)};
    return PassGate(machine, std::move(call), [&](CallRecord& record) {
        StatusBlock block(machine, record, control.ioStatus);
        OpenFile* const file = RequireFile(machine, record, control.handle);
        if (file == nullptr) {
            return kInvalidHandle;
        }
        const ControlAnswer answer = AnswerOf(machine, record, *file, request);
        if (!IsError(answer.status)) {
            const size_t fitting = std::min<size_t>(answer.output.size(), control.outputLength);
            std::copy_n(answer.output.begin(), fitting, static_cast<uint8_t*>(control.output));
        }
        return block.Finish(record, answer.status, answer.information.value_or(answer.output.size()));
    });
}

CallRecord QueryRecord(Machine& machine, CallKind kind, const char* name, kk::NtHandle handle, uint32_t length,
                       uint32_t informationClass)
{
    return {
        .kind = kind, .name = name, .object = HandleName(machine, handle), .code = informationClass, .length = length};
}

Status QueryFileSystemAttributes(OpenFile& file, std::span<uint8_t> buffer, uint64_t& information)
{
    constexpr size_t kHeadBytes = offsetof(kk::FileFsAttributeInformation, fileSystemName);
    constexpr size_t kSmallestBuffer = 16;
    constexpr uint32_t kCaseIsKeptAndUnicode = 0x2 | 0x4;
    if (buffer.size() < kSmallestBuffer) {
        return kInfoLengthMismatch;
    }
    std::u16string name;
    const Status status = file.device->QueryFileSystemName(file, name);
    if (status != kSuccess) {
        return status;
    }
    kk::FileFsAttributeInformation head = {};
    head.fileSystemAttributes = kCaseIsKeptAndUnicode;
    head.maximumComponentNameLength = 255;
    const size_t nameBytes = name.size() * sizeof(char16_t);
    const size_t fitting = std::min(nameBytes, (buffer.size() - kHeadBytes) / 2 * 2);
    head.fileSystemNameBytes = static_cast<uint32_t>(fitting);
    std::memcpy(buffer.data(), &head, kHeadBytes);
    std::memcpy(buffer.data() + kHeadBytes, name.data(), fitting);
    information = kHeadBytes + fitting;
    return fitting < nameBytes ? kBufferOverflow : kSuccess;
}

}  // namespace

}  // namespace machine

KK_STATUS KK_CALL NtDeviceIoControlFile(kk::NtHandle handle, kk::NtHandle /*event*/, void* /*apc*/,
                                        void* /*apcContext*/, kk::IoStatusBlock* ioStatus, uint32_t code,
                                        const void* input, uint32_t inputLength, void* output, uint32_t outputLength)
{
    return Control({CallKind::DeviceControl, "NtDeviceIoControlFile", handle, ioStatus, code, input, inputLength,
                    output, outputLength});
}

KK_STATUS KK_CALL NtFsControlFile(kk::NtHandle handle, kk::NtHandle /*event*/, void* /*apc*/, void* /*apcContext*/,
                                  kk::IoStatusBlock* ioStatus, uint32_t code, const void* input, uint32_t inputLength,
                                  void* output, uint32_t outputLength)
{
    return Control(
        {CallKind::FsControl, "NtFsControlFile", handle, ioStatus, code, input, inputLength, output, outputLength});
}

KK_STATUS KK_CALL NtQueryInformationFile(kk::NtHandle handle, kk::IoStatusBlock* ioStatus, void* buffer,
                                         uint32_t length, uint32_t informationClass)
{
    Machine& machine = Machine::Current();
    CallRecord call =
        QueryRecord(machine, CallKind::QueryInformation, "NtQueryInformationFile", handle, length, informationClass);
    return PassGate(machine, std::move(call), [&](CallRecord& record) {
        StatusBlock block(machine, record, ioStatus);
        OpenFile* const file = RequireFile(machine, record, handle);
        if (file == nullptr) {
            return kInvalidHandle;
        }
        if (informationClass != kk::kFileStandardInformationClass) {
            return kInvalidInfoClass;
        }
        if (length < sizeof(kk::FileStandardInformation)) {
            return kInfoLengthMismatch;
        }
        kk::FileStandardInformation information = {};
        const Status status = file->device->QueryStandardInformation(*file, information);
        if (!IsError(status)) {
            std::memcpy(buffer, &information, sizeof(information));
        }
        return block.Finish(record, status, sizeof(information));
    });
}

KK_STATUS KK_CALL NtQueryVolumeInformationFile(kk::NtHandle handle, kk::IoStatusBlock* ioStatus, void* buffer,
                                               uint32_t length, uint32_t informationClass)
{
    Machine& machine = Machine::Current();
    CallRecord call = QueryRecord(machine, CallKind::QueryVolumeInformation, "NtQueryVolumeInformationFile", handle,
                                  length, informationClass);
    return PassGate(machine, std::move(call), [&](CallRecord& record) {
        StatusBlock block(machine, record, ioStatus);
        OpenFile* const file = RequireFile(machine, record, handle);
        if (file == nullptr) {
            return kInvalidHandle;
        }
        if (informationClass != kk::kFileFsAttributeInformationClass) {
            return kInvalidInfoClass;
        }
        uint64_t information = 0;
        const std::span<uint8_t> room(static_cast<uint8_t*>(buffer), length);
        const Status status = QueryFileSystemAttributes(*file, room, information);
        return block.Finish(record, status, information);
    });
}
