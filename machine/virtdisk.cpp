#include <mutex>
#include <utility>

#include "machine/device.h"
#include "machine/gate.h"
#include "machine/machine.h"
#include "machine/native_text.h"
#include "machine/text.h"
#include "machine/virtual_disk_service.h"

// The entry points of virtdisk.dll: each makes a record of its arguments, passes the gate and asks the service.

namespace machine {
namespace {

/// The service of the machine that exists.
std::weak_ptr<VirtualDiskService> installedService;

template <typename Body>
uint32_t PassToService(CallRecord record, Body&& body)
{
    return PassGate(Machine::Current(), std::move(record), [&body](CallRecord&) -> uint32_t {
        const std::shared_ptr<VirtualDiskService> service = installedService.lock();
        return service != nullptr ? body(*service) : kErrorGenFailure;
    });
}

CallRecord RecordByPath(const char* name, const kk::VirtualStorageType* storageType, const char16_t* path,
                        uint32_t accessMask, uint32_t flags)
{
    return {.kind = CallKind::Win32Error,
            .name = name,
            .object = Utf8(TextOf(path)),
            .code = storageType != nullptr ? storageType->deviceId : 0,
            .access = accessMask,
            .options = flags};
}

/// The image behind a handle, so that records and faults can name it.
std::string ImageName(kk::NtHandle handle)
{
    const MachineLock lock(Machine::Current());
    const std::shared_ptr<VirtualDiskService> service = installedService.lock();
    return service != nullptr ? service->NameOf(handle) : std::string();
}

uint32_t KK_CALL CreateVirtualDisk(const kk::VirtualStorageType* storageType, const char16_t* path, uint32_t accessMask,
                                   void* /*securityDescriptor*/, uint32_t flags, uint32_t providerFlags,
                                   const kk::CreateVirtualDiskParameters* parameters, void* overlapped,
                                   kk::NtHandle* handle)
{
    CallRecord record = RecordByPath("CreateVirtualDisk", storageType, path, accessMask, flags);
    if (parameters != nullptr) {
        record.length = parameters->maximumSize;
        record.input = BytesOf(*parameters);
    }
    return PassToService(std::move(record), [&](VirtualDiskService& service) {
        return service.Create({storageType, path, accessMask, flags, providerFlags, parameters, overlapped}, handle);
    });
}

uint32_t KK_CALL OpenVirtualDisk(const kk::VirtualStorageType* storageType, const char16_t* path, uint32_t accessMask,
                                 uint32_t flags, const void* parameters, kk::NtHandle* handle)
{
    CallRecord record = RecordByPath("OpenVirtualDisk", storageType, path, accessMask, flags);
    return PassToService(std::move(record), [&](VirtualDiskService& service) {
        return service.Open({storageType, path, accessMask, flags, parameters}, handle);
    });
}

uint32_t KK_CALL AttachVirtualDisk(kk::NtHandle handle, void* /*securityDescriptor*/, uint32_t flags,
                                   uint32_t providerFlags, const kk::AttachVirtualDiskParameters* parameters,
                                   void* overlapped)
{
    CallRecord record = {
        .kind = CallKind::Win32Error, .name = "AttachVirtualDisk", .object = ImageName(handle), .options = flags};
    if (parameters != nullptr) {
        record.input = BytesOf(*parameters);
    }
    return PassToService(std::move(record), [&](VirtualDiskService& service) {
        return service.Attach(handle, flags, providerFlags, parameters, overlapped);
    });
}

uint32_t KK_CALL DetachVirtualDisk(kk::NtHandle handle, uint32_t flags, uint32_t providerFlags)
{
    CallRecord record = {
        .kind = CallKind::Win32Error, .name = "DetachVirtualDisk", .object = ImageName(handle), .options = flags};
    return PassToService(std::move(record),
                         [&](VirtualDiskService& service) { return service.Detach(handle, flags, providerFlags); });
}

uint32_t KK_CALL GetVirtualDiskPhysicalPath(kk::NtHandle handle, uint32_t* sizeInBytes, char16_t* path)
{
    CallRecord record = {.kind = CallKind::Win32Error,
                         .name = "GetVirtualDiskPhysicalPath",
                         .object = ImageName(handle),
                         .length = sizeInBytes != nullptr ? *sizeInBytes : 0};
    return PassToService(std::move(record), [&](VirtualDiskService& service) {
        return service.GetPhysicalPath(handle, sizeInBytes, path);
    });
}

uint32_t KK_CALL GetStorageDependencyInformation(kk::NtHandle disk, uint32_t flags, uint32_t size,
                                                 kk::StorageDependencyInfo* answer, uint32_t* sizeUsed)
{
    CallRecord record = {.kind = CallKind::Win32Error,
                         .name = "GetStorageDependencyInformation",
                         .object = HandleName(Machine::Current(), disk),
                         .length = size,
                         .options = flags};
    return PassToService(std::move(record), [&](VirtualDiskService& service) {
        return service.GetDependencies(disk, flags, size, answer, sizeUsed);
    });
}

}  // namespace

VirtualDiskService& InstallVirtualDiskService(Machine& machine, std::shared_ptr<VirtualDiskBackEnd> backEnd)
{
    const auto service = std::make_shared<VirtualDiskService>(machine, std::move(backEnd));
    // The check has nothing of its own to tell, since handles are counted elsewhere; it ties the service's life to
    // the machine's.
    machine.AddBalanceCheck([service] { return std::vector<std::string>(); });
    installedService = service;
    machine.modules.Add(u"virtdisk.dll",
                        {{"CreateVirtualDisk", EntryAddress(&CreateVirtualDisk)},
                         {"OpenVirtualDisk", EntryAddress(&OpenVirtualDisk)},
                         {"AttachVirtualDisk", EntryAddress(&AttachVirtualDisk)},
                         {"DetachVirtualDisk", EntryAddress(&DetachVirtualDisk)},
                         {"GetVirtualDiskPhysicalPath", EntryAddress(&GetVirtualDiskPhysicalPath)},
                         {"GetStorageDependencyInformation", EntryAddress(&GetStorageDependencyInformation)}});
    return *service;
}

}  // namespace machine
