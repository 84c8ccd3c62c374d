#include "core/file_opener.h"

#include <new>

#include "core/memory.h"
#include "core/native_file.h"
#include "core/nt_device_file.h"
#include "core/status.h"

namespace kk {

namespace {

constexpr OpenMode kOpenToRead = {kFileGenericRead, kFileShareRead | kFileShareWrite, kFileOpen,
                                  kFileRandomAccess | kFileNonDirectoryFile | kFileSynchronousIoNonalert};
constexpr OpenMode kOpenToWrite = {kFileGenericRead | kFileGenericWrite, kOpenToRead.share, kOpenToRead.disposition,
                                   kOpenToRead.options};

alignas(NtFileOpener) constinit uint8_t gOpenerMemory[sizeof(NtFileOpener)] = {};
// A plain flag: two threads that both find it clear build the same object twice, which does no harm.
constinit bool gOpenerCreated = false;

/// Keeps the compiler from moving the flag before the object. The processor keeps the order of writes by itself.
void FinishWritesBefore()
{
    asm volatile("" : : : "memory");
}

}  // namespace

void FileOpener::Destroy(bool /*freeObject*/) {}

KK_STATUS FileOpener::Open(const char16_t* /*path*/, bool /*writable*/, DeviceFile** /*file*/)
{
    return KK_STATUS_SUCCESS;
}

void NtFileOpener::Destroy(bool freeObject)
{
    if (freeObject) {
        MemFree(this);
    }
}

KK_STATUS NtFileOpener::Open(const char16_t* path, bool writable, DeviceFile** file)
{
    *file = nullptr;
    NtHandle handle = nullptr;
    KK_TRY(OpenNativeFile(path, writable ? kOpenToWrite : kOpenToRead, handle));
    HandleOwner owner(handle);

    void* memory = MemAlloc(sizeof(NtDeviceFile));
    if (memory == nullptr) {
        return KK_STATUS_NO_MEMORY;
    }
    *file = new (memory) NtDeviceFile(owner.Release());
    return KK_STATUS_SUCCESS;
}

FileOpener* GetFileOpener()
{
    if (!gOpenerCreated) {
        new (gOpenerMemory) NtFileOpener;
        FinishWritesBefore();
        gOpenerCreated = true;
    }
    return std::launder(reinterpret_cast<NtFileOpener*>(gOpenerMemory));
}

KK_STATUS OpenDevice(const char16_t* path, bool writable, DevicePtr& device)
{
    return GetFileOpener()->Open(path, writable, device.Receive());
}

}  // namespace kk
