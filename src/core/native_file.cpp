#include "core/native_file.h"

#include "core/nt.h"
#include "core/nt_path.h"
#include "core/status.h"
#include "core/text.h"

namespace kk {

HandleOwner::~HandleOwner()
{
    if (handle_ != nullptr) {
        (void)NtClose(handle_);
    }
}

KK_STATUS OpenNativeFile(const char16_t* path, const OpenMode& mode, NtHandle& handle)
{
    char16_t ntPath[kNtPathUnits];
    ToNtPath(path, ntPath, kNtPathUnits);
    const auto bytes = static_cast<uint16_t>(TextLength(ntPath) * sizeof(char16_t));
    const UnicodeString name = {bytes, static_cast<uint16_t>(bytes + sizeof(char16_t)), ntPath};
    const ObjectAttributes attributes = {.length = sizeof(ObjectAttributes),
                                         .rootDirectory = nullptr,
                                         .objectName = &name,
                                         .attributes = kObjCaseInsensitive,
                                         .securityDescriptor = nullptr,
                                         .securityQualityOfService = nullptr};
    IoStatusBlock ioStatus = {};
    return NtCreateFile(&handle, mode.access, &attributes, &ioStatus, nullptr, kFileAttributeNormal, mode.share,
                        mode.disposition, mode.options, nullptr, 0);
}

KK_STATUS WriteNewFile(const char16_t* path, const void* data, uint32_t length)
{
    constexpr OpenMode mode = {kFileGenericWrite, kFileShareRead, kFileOverwriteIf,
                               kFileNonDirectoryFile | kFileSynchronousIoNonalert};
    NtHandle handle = nullptr;
    KK_TRY(OpenNativeFile(path, mode, handle));
    const HandleOwner owner(handle);

    IoStatusBlock ioStatus = {};
    const int64_t offset = 0;
    KK_TRY(NtWriteFile(handle, nullptr, nullptr, nullptr, &ioStatus, data, length, &offset, nullptr));
    return KK_STATUS_SUCCESS;
}

}  // namespace kk
