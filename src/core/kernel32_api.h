#pragma once

#include <cstdint>

#include "core/nt_types.h"
#include "core/shared_flag.h"

namespace kk {

/// STARTUPINFOW.
struct StartupInfo {
    uint32_t size;
    char16_t* reserved;
    char16_t* desktop;
    char16_t* title;
    uint32_t x;
    uint32_t y;
    uint32_t xSize;
    uint32_t ySize;
    uint32_t xCountChars;
    uint32_t yCountChars;
    uint32_t fillAttribute;
    uint32_t flags;
    uint16_t showWindow;
    uint16_t reserved2Size;
    uint8_t* reserved2;
    NtHandle standardInput;
    NtHandle standardOutput;
    NtHandle standardError;
};
static_assert(sizeof(StartupInfo) == 104 && offsetof(StartupInfo, flags) == 60);

inline constexpr uint32_t kCreateNoWindow = 0x08000000;
inline constexpr uint32_t kStartfUseShowWindow = 1;
inline constexpr uint16_t kSwHide = 0;

/// PROCESS_INFORMATION.
struct ProcessInformation {
    NtHandle process;
    NtHandle thread;
    uint32_t processId;
    uint32_t threadId;
};
static_assert(sizeof(ProcessInformation) == 24);

/// Entry points of kernel32.dll. BOOL results are 32 bits wide, non-zero is true.
struct Kernel32Api {
    int32_t(KK_CALL* setVolumeMountPointW)(const char16_t* mountPoint, const char16_t* volumeGuidPath);
    int32_t(KK_CALL* deleteVolumeMountPointW)(const char16_t* mountPoint);
    int32_t(KK_CALL* createProcessW)(const char16_t* application, char16_t* commandLine, void* processSecurity,
                                     void* threadSecurity, int32_t inheritHandles, uint32_t flags, void* environment,
                                     const char16_t* directory, StartupInfo* startup, ProcessInformation* process);
    uint32_t(KK_CALL* waitForSingleObject)(NtHandle handle, uint32_t milliseconds);
    int32_t(KK_CALL* getExitCodeProcess)(NtHandle process, uint32_t* exitCode);
    int32_t(KK_CALL* closeHandle)(NtHandle handle);
    uint32_t(KK_CALL* getLogicalDrives)();
    uint32_t(KK_CALL* getSystemDirectoryW)(char16_t* buffer, uint32_t capacity);
    SharedFlag tried;
    SharedFlag ok;
};

/// The process-wide table; its entries are null until it is bound.
const Kernel32Api& GetKernel32Api();

/// Binds the table on the first call; later calls repeat the first answer, and tell false until there is one. True when
/// both mount-point calls were found; the other entries may be null all the same, and users test theirs.
[[nodiscard]] bool BindKernel32();

}  // namespace kk
