#include "core/file_opener.h"

#include <new>

#include "core/memory.h"
#include "core/native_file.h"
#include "core/nt_device_file.h"
#include "core/shared_flag.h"
#include "core/status.h"

namespace kk {

namespace {

constexpr OpenMode kOpenToRead = {kFileGenericRead, kFileShareRead | kFileShareWrite, kFileOpen,
                                  kFileRandomAccess | kFileNonDirectoryFile | kFileSynchronousIoNonalert};
constexpr OpenMode kOpenToWrite = {kFileGenericRead | kFileGenericWrite, kOpenToRead.share, kOpenToRead.disposition,
                                   kOpenToRead.options};

constinit uintptr_t gOpenerMemory = 0;
constinit SharedFlag gOpenerCreated;
static_assert(sizeof(NtFileOpener) == sizeof(gOpenerMemory) && alignof(NtFileOpener) == alignof(uintptr_t));

/// All that is in an opener is the pointer to its methods, one word. Two threads that both make one come to the same word,
/// and only one of them writes it, so that none writes what others read already.
void MakeOpener()
{
    const NtFileOpener opener;
    uintptr_t word = 0;
    CopyBytes(&word, &opener, sizeof(word));
    PublishSharedOnce(gOpenerMemory, word);
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
    if (!gOpenerCreated.IsSet()) {
        MakeOpener();
        gOpenerCreated.Set();
    }
    return std::launder(reinterpret_cast<NtFileOpener*>(&gOpenerMemory));
}

KK_STATUS OpenDevice(const char16_t* path, bool writable, DevicePtr& device)
{
    return GetFileOpener()->Open(path, writable, device.Receive());
}

}  // namespace kk
