#include "machine/ntdll_exports.h"

#include <cstring>

#include "core/nt.h"
#include "machine/modules.h"

namespace machine {

namespace {

struct Export {
    const char* name;
    void* address;
};

const Export kExports[] = {
    {"LdrGetProcedureAddress", EntryAddress(&LdrGetProcedureAddress)},
    {"LdrLoadDll", EntryAddress(&LdrLoadDll)},
    {"NtClose", EntryAddress(&NtClose)},
    {"NtCreateFile", EntryAddress(&NtCreateFile)},
    {"NtDeviceIoControlFile", EntryAddress(&NtDeviceIoControlFile)},
    {"NtFlushBuffersFile", EntryAddress(&NtFlushBuffersFile)},
    {"NtFsControlFile", EntryAddress(&NtFsControlFile)},
    {"NtQueryInformationFile", EntryAddress(&NtQueryInformationFile)},
    {"NtQuerySystemTime", EntryAddress(&NtQuerySystemTime)},
    {"NtQueryVolumeInformationFile", EntryAddress(&NtQueryVolumeInformationFile)},
    {"NtReadFile", EntryAddress(&NtReadFile)},
    {"NtShutdownSystem", EntryAddress(&NtShutdownSystem)},
    {"NtWriteFile", EntryAddress(&NtWriteFile)},
    {"RtlAdjustPrivilege", EntryAddress(&RtlAdjustPrivilege)},
    {"RtlAllocateHeap", EntryAddress(&RtlAllocateHeap)},
    {"RtlFreeHeap", EntryAddress(&RtlFreeHeap)},
    {"RtlRandomEx", EntryAddress(&RtlRandomEx)},
    {"RtlTimeToTimeFields", EntryAddress(&RtlTimeToTimeFields)},
    {"RtlUnicodeToUTF8N", EntryAddress(&RtlUnicodeToUTF8N)},
};

}  // namespace

void* FindNtdllExport(const char* name)
{
    for (const Export& entry : kExports) {
        if (std::strcmp(entry.name, name) == 0) {
            return entry.address;
        }
    }
    return nullptr;
}

}  // namespace machine
