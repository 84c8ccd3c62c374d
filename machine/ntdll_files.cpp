#include <cstring>

#include "core/nt.h"
#include "machine/gate.h"
#include "machine/io_request.h"
#include "machine/text.h"

using namespace machine;

namespace machine {

StatusBlock::StatusBlock(const Machine& machine, const CallRecord& record, kk::IoStatusBlock* block) : block_(block)
{
    if (block == nullptr) {
        machine.Report(record.name + ": no I/O status block");
    } else if (block->pointer != nullptr || block->information != 0) {
        machine.Report(record.name + " on " + record.object + ": the I/O status block was not zeroed before the call");
    }
}

Status StatusBlock::Finish(CallRecord& record, Status status, uint64_t information)
{
    if (!IsError(status) && block_ != nullptr) {
        block_->status = status;
        block_->information = information;
        record.information = information;
    }
    return status;
}

OpenFile* RequireFile(Machine& machine, const CallRecord& record, kk::NtHandle handle)
{
    OpenFile* const file = machine.handles.FindFile(handle);
    if (file == nullptr) {
        machine.Report(record.name + ": no open file has the handle " + Hex(reinterpret_cast<uintptr_t>(handle)));
    }
    return file;
}

bool CloseOrReport(Machine& machine, const CallRecord& record, kk::NtHandle handle)
{
    const bool closed = machine.handles.Close(handle);
    if (!closed) {
        machine.Report(record.name + ": no handle " + Hex(reinterpret_cast<uintptr_t>(handle)));
    }
    return closed;
}

namespace {

/// What generic rights stand for on files.
uint32_t SpecificAccess(uint32_t access)
{
    uint32_t specific = access & 0x0FFFFFFF;
    specific |= (access & kGenericRead) != 0 ? kk::kFileGenericRead : 0;
    specific |= (access & kGenericWrite) != 0 ? kk::kFileGenericWrite : 0;
    specific |= (access & kGenericAll) != 0 ? kFileAllAccess : 0;
    return specific;
}

std::u16string NameIn(const kk::ObjectAttributes* attributes)
{
    if (attributes == nullptr || attributes->objectName == nullptr || attributes->objectName->buffer == nullptr) {
        return {};
    }
    return {attributes->objectName->buffer, attributes->objectName->length / sizeof(char16_t)};
}

Status CheckCreateArguments(const kk::NtHandle* handle, const kk::ObjectAttributes* attributes, const OpenFile& file)
{
    constexpr uint32_t kSynchronous = kk::kFileSynchronousIoNonalert | kFileSynchronousIoAlert;
    const bool needsSynchronize = (file.options & kSynchronous) != 0;
    if (handle == nullptr || attributes == nullptr || attributes->length != sizeof(kk::ObjectAttributes) ||
        attributes->rootDirectory != nullptr || file.disposition > kk::kFileOverwriteIf ||
        (file.options & kSynchronous) == kSynchronous || (needsSynchronize && (file.access & kSynchronize) == 0)) {
        return kInvalidParameter;
    }
    return kSuccess;
}

Status OpenByName(const Machine& machine, OpenFile& file, const kk::ObjectAttributes& attributes)
{
    const bool ignoreCase = (attributes.attributes & kk::kObjCaseInsensitive) != 0;
    const Namespace::Place place = machine.names.Find(file.name, ignoreCase);
    if (place.status != kSuccess) {
        return place.status;
    }
    file.device = place.device;
    return place.device->Open(file, place.rest);
}

CallRecord TransferRecord(Machine& machine, CallKind kind, const char* name, kk::NtHandle handle, uint32_t length,
                          const int64_t* offset)
{
    return {.kind = kind,
            .name = name,
            .object = HandleName(machine, handle),
            .offset = offset != nullptr ? static_cast<uint64_t>(*offset) : 0,
            .length = length};
}

/// The checks that reads and writes share, and the place in the file that is meant.
Status PlaceTransfer(OpenFile& file, uint32_t neededAccess, const int64_t* offset, uint64_t& place)
{
    if ((file.access & neededAccess) == 0) {
        return kAccessDenied;
    }
    const bool isSynchronous = (file.options & (kk::kFileSynchronousIoNonalert | kFileSynchronousIoAlert)) != 0;
    if (offset == nullptr ? !isSynchronous : *offset < 0) {
        return kInvalidParameter;
    }
    place = static_cast<uint64_t>(offset != nullptr ? *offset : file.position);
    return kSuccess;
}

uint32_t LengthToMove(const CallRecord& record)
{
    return static_cast<uint32_t>(std::min(record.length, record.shortenedTo.value_or(record.length)));
}

}  // namespace

}  // namespace machine

KK_STATUS KK_CALL NtCreateFile(kk::NtHandle* handle, uint32_t access, const kk::ObjectAttributes* attributes,
                               kk::IoStatusBlock* ioStatus, const int64_t* /*allocationSize*/, uint32_t fileAttributes,
                               uint32_t share, uint32_t disposition, uint32_t options, void* /*extendedAttributes*/,
                               uint32_t /*extendedLength*/)
{
    Machine& machine = Machine::Current();
    OpenFile file;
    file.name = NameIn(attributes);
    file.nameUtf8 = Utf8(file.name);
    file.access = SpecificAccess(access);
    file.share = share;
    file.disposition = disposition;
    file.options = options;

    CallRecord call = {.kind = CallKind::CreateFile,
                       .name = "NtCreateFile",
                       .object = file.nameUtf8,
                       .access = access,
                       .share = share,
                       .disposition = disposition,
                       .options = options,
                       .fileAttributes = fileAttributes,
                       .objectAttributes = attributes != nullptr ? attributes->attributes : 0};
    return PassGate(machine, std::move(call), [&](CallRecord& record) {
        StatusBlock block(machine, record, ioStatus);
        Status status = CheckCreateArguments(handle, attributes, file);
        if (status == kSuccess) {
            status = OpenByName(machine, file, *attributes);
        }
        if (status == kSuccess) {
            const uint64_t information = file.createInformation;
            *handle = machine.handles.AddFile(std::move(file));
            return block.Finish(record, status, information);
        }
        return status;
    });
}

KK_STATUS KK_CALL NtReadFile(kk::NtHandle handle, kk::NtHandle /*event*/, void* /*apc*/, void* /*apcContext*/,
                             kk::IoStatusBlock* ioStatus, void* buffer, uint32_t length, const int64_t* offset,
                             const uint32_t* /*key*/)
{
    Machine& machine = Machine::Current();
    CallRecord call = TransferRecord(machine, CallKind::ReadFile, "NtReadFile", handle, length, offset);
    return PassGate(machine, std::move(call), [&](CallRecord& record) {
        StatusBlock block(machine, record, ioStatus);
        OpenFile* const file = RequireFile(machine, record, handle);
        uint64_t place = 0;
        const Status status = file == nullptr ? kInvalidHandle : PlaceTransfer(*file, kFileReadData, offset, place);
        if (status != kSuccess) {
            return status;
        }
        const std::span<uint8_t> into(static_cast<uint8_t*>(buffer), LengthToMove(record));
        const IoResult result = file->device->Read(*file, place, into);
        file->position = static_cast<int64_t>(place + result.information);
        return block.Finish(record, result.status, result.information);
    });
}

KK_STATUS KK_CALL NtWriteFile(kk::NtHandle handle, kk::NtHandle /*event*/, void* /*apc*/, void* /*apcContext*/,
                              kk::IoStatusBlock* ioStatus, const void* buffer, uint32_t length, const int64_t* offset,
                              const uint32_t* /*key*/)
{
    Machine& machine = Machine::Current();
    CallRecord call = TransferRecord(machine, CallKind::WriteFile, "NtWriteFile", handle, length, offset);
    return PassGate(machine, std::move(call), [&](CallRecord& record) {
        StatusBlock block(machine, record, ioStatus);
        OpenFile* const file = RequireFile(machine, record, handle);
        uint64_t place = 0;
        const Status status =
            file == nullptr ? kInvalidHandle : PlaceTransfer(*file, kFileWriteData | kFileAppendData, offset, place);
        if (status != kSuccess) {
            return status;
        }
        const std::span<const uint8_t> from(static_cast<const uint8_t*>(buffer), LengthToMove(record));
        const IoResult result = file->device->Write(*file, place, from);
        file->position = static_cast<int64_t>(place + result.information);
        return block.Finish(record, result.status, result.information);
    });
}

KK_STATUS KK_CALL NtFlushBuffersFile(kk::NtHandle handle, kk::IoStatusBlock* ioStatus)
{
    Machine& machine = Machine::Current();
    CallRecord call = TransferRecord(machine, CallKind::Flush, "NtFlushBuffersFile", handle, 0, nullptr);
    return PassGate(machine, std::move(call), [&](CallRecord& record) {
        StatusBlock block(machine, record, ioStatus);
        OpenFile* const file = RequireFile(machine, record, handle);
        return block.Finish(record, file == nullptr ? kInvalidHandle : file->device->Flush(*file), 0);
    });
}

KK_STATUS KK_CALL NtClose(kk::NtHandle handle)
{
    Machine& machine = Machine::Current();
    CallRecord call = TransferRecord(machine, CallKind::Close, "NtClose", handle, 0, nullptr);
    return PassGate(machine, std::move(call), [&](CallRecord& record) {
        return CloseOrReport(machine, record, handle) ? kSuccess : kInvalidHandle;
    });
}
