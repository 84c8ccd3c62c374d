#pragma once

#include "core/nt_types.h"

// The native system calls: all that the library imports, and all of it from ntdll.dll.

#if defined(_WIN32)
#define KK_NTDLL extern "C" __declspec(dllimport)
#else
#define KK_NTDLL extern "C"
#endif

KK_NTDLL KK_STATUS KK_CALL NtCreateFile(kk::NtHandle* handle, uint32_t access, const kk::ObjectAttributes* attributes,
                                        kk::IoStatusBlock* ioStatus, const int64_t* allocationSize,
                                        uint32_t fileAttributes, uint32_t share, uint32_t disposition, uint32_t options,
                                        void* extendedAttributes, uint32_t extendedLength);
KK_NTDLL KK_STATUS KK_CALL NtReadFile(kk::NtHandle handle, kk::NtHandle event, void* apc, void* apcContext,
                                      kk::IoStatusBlock* ioStatus, void* buffer, uint32_t length, const int64_t* offset,
                                      const uint32_t* key);
KK_NTDLL KK_STATUS KK_CALL NtWriteFile(kk::NtHandle handle, kk::NtHandle event, void* apc, void* apcContext,
                                       kk::IoStatusBlock* ioStatus, const void* buffer, uint32_t length,
                                       const int64_t* offset, const uint32_t* key);
KK_NTDLL KK_STATUS KK_CALL NtClose(kk::NtHandle handle);
KK_NTDLL KK_STATUS KK_CALL NtDeviceIoControlFile(kk::NtHandle handle, kk::NtHandle event, void* apc, void* apcContext,
                                                 kk::IoStatusBlock* ioStatus, uint32_t code, const void* input,
                                                 uint32_t inputLength, void* output, uint32_t outputLength);
KK_NTDLL KK_STATUS KK_CALL NtFsControlFile(kk::NtHandle handle, kk::NtHandle event, void* apc, void* apcContext,
                                           kk::IoStatusBlock* ioStatus, uint32_t code, const void* input,
                                           uint32_t inputLength, void* output, uint32_t outputLength);
KK_NTDLL KK_STATUS KK_CALL NtQueryInformationFile(kk::NtHandle handle, kk::IoStatusBlock* ioStatus, void* buffer,
                                                  uint32_t length, uint32_t informationClass);
KK_NTDLL KK_STATUS KK_CALL NtQueryVolumeInformationFile(kk::NtHandle handle, kk::IoStatusBlock* ioStatus, void* buffer,
                                                        uint32_t length, uint32_t informationClass);
KK_NTDLL KK_STATUS KK_CALL NtFlushBuffersFile(kk::NtHandle handle, kk::IoStatusBlock* ioStatus);
KK_NTDLL KK_STATUS KK_CALL NtQuerySystemTime(int64_t* time);
KK_NTDLL void KK_CALL RtlTimeToTimeFields(const int64_t* time, kk::TimeFields* fields);
KK_NTDLL uint32_t KK_CALL RtlRandomEx(uint32_t* seed);
KK_NTDLL KK_STATUS KK_CALL RtlUnicodeToUTF8N(char* output, uint32_t outputLimit, uint32_t* outputLength,
                                             const char16_t* input, uint32_t inputBytes);
KK_NTDLL void* KK_CALL RtlAllocateHeap(void* heap, uint32_t flags, uint64_t size);
KK_NTDLL uint8_t KK_CALL RtlFreeHeap(void* heap, uint32_t flags, void* block);
KK_NTDLL KK_STATUS KK_CALL RtlAdjustPrivilege(uint32_t privilege, uint8_t enable, uint8_t currentThread,
                                              uint8_t* wasEnabled);
KK_NTDLL KK_STATUS KK_CALL NtShutdownSystem(uint32_t action);
KK_NTDLL KK_STATUS KK_CALL LdrLoadDll(const char16_t* searchPath, const uint32_t* flags, const kk::UnicodeString* name,
                                      void** module);
KK_NTDLL KK_STATUS KK_CALL LdrGetProcedureAddress(void* module, const kk::AnsiString* name, uint32_t ordinal,
                                                  void** address);
