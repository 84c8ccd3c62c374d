#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "image/virtual_disk_api.h"
#include "machine/machine.h"
#include "machine/text.h"

/// A virtual-disk service that does nothing but write its calls down, to the last pointer. One exists at a time.
class ScriptedVirtdisk {
public:
    explicit ScriptedVirtdisk(machine::Machine& machine) : machine_(machine)
    {
        current = this;
        machine.modules.Add(u"virtdisk.dll",
                            {{"OpenVirtualDisk", machine::EntryAddress(&Open)},
                             {"CreateVirtualDisk", machine::EntryAddress(&Create)},
                             {"AttachVirtualDisk", machine::EntryAddress(&Attach)},
                             {"DetachVirtualDisk", machine::EntryAddress(&Detach)},
                             {"GetVirtualDiskPhysicalPath", machine::EntryAddress(&GetPath)},
                             {"GetStorageDependencyInformation", machine::EntryAddress(&GetDependencies)}});
    }
    ScriptedVirtdisk(const ScriptedVirtdisk&) = delete;
    ScriptedVirtdisk& operator=(const ScriptedVirtdisk&) = delete;
    ~ScriptedVirtdisk() { current = nullptr; }

    // The Win32 errors that the calls end with.
    uint32_t openError = 0;
    uint32_t createError = 0;
    uint32_t attachError = 0;
    uint32_t detachError = 0;
    uint32_t pathError = 0;
    std::u16string path = u"\\\\.\\PhysicalDrive12";
    bool terminates = true;
    bool givesHandles = true;

    using DependencyAnswer =
        std::function<uint32_t(kk::StorageDependencyInfo* answer, uint32_t size, uint32_t* sizeUsed)>;
    /// What GetStorageDependencyInformation does.
    DependencyAnswer answerDependencies = [](auto...) { return 0xC03A0015; };

    std::vector<std::string> log;
    std::vector<uint8_t> creation;    // the record of the last creation
    std::vector<uint8_t> attachment;  // the record of the last attachment
    // What was opened or created last.
    kk::VirtualStorageType storageType = {};
    std::u16string createdPath;
    std::u16string openedPath;
    std::u16string parentPath;

private:
    static inline ScriptedVirtdisk* current = nullptr;

    static std::string Null(const void* pointer) { return pointer == nullptr ? " null" : " pointer"; }
    std::string Name(kk::NtHandle handle) const { return " " + machine_.handles.NameOf(handle); }

    static kk::NtHandle GiveHandle()
    {
        return current->machine_.handles.AddServiceHandle("image", [] { current->log.emplace_back("Close"); });
    }

    static uint32_t KK_CALL Open(const kk::VirtualStorageType* type, const char16_t* path, uint32_t access,
                                 uint32_t flags, const void* parameters, kk::NtHandle* handle)
    {
        current->log.push_back("Open " + std::to_string(access) + " " + std::to_string(flags) + Null(parameters));
        current->storageType = *type;
        current->openedPath = path;
        if (current->openError != 0) {
            *handle = reinterpret_cast<kk::NtHandle>(uintptr_t{0xBAD0});  // no handle, which nobody may touch
        } else if (current->givesHandles) {
            *handle = GiveHandle();
        }
        return current->openError;
    }
    static uint32_t KK_CALL Create(const kk::VirtualStorageType* type, const char16_t* path, uint32_t access,
                                   void* descriptor, uint32_t flags, uint32_t providerFlags,
                                   const kk::CreateVirtualDiskParameters* parameters, void* overlapped,
                                   kk::NtHandle* handle)
    {
        current->log.push_back("Create " + std::to_string(access) + Null(descriptor) + " " + std::to_string(flags) +
                               " " + std::to_string(providerFlags) + Null(overlapped));
        current->storageType = *type;
        current->createdPath = path;
        current->creation.resize(sizeof(*parameters));
        std::memcpy(current->creation.data(), parameters, sizeof(*parameters));
        current->parentPath = parameters->parentPath != nullptr ? parameters->parentPath : u"";
        if (current->createError == 0 && current->givesHandles) {
            *handle = GiveHandle();
        }
        return current->createError;
    }
    static uint32_t KK_CALL Attach(kk::NtHandle handle, void* descriptor, uint32_t flags, uint32_t providerFlags,
                                   const void* parameters, void* overlapped)
    {
        current->log.push_back("Attach" + current->Name(handle) + Null(descriptor) + " " + std::to_string(flags) + " " +
                               std::to_string(providerFlags) + Null(parameters) + Null(overlapped));
        if (parameters != nullptr) {
            current->attachment.resize(sizeof(kk::AttachVirtualDiskParameters));
            std::memcpy(current->attachment.data(), parameters, current->attachment.size());
        }
        return current->attachError;
    }
    static uint32_t KK_CALL Detach(kk::NtHandle handle, uint32_t flags, uint32_t providerFlags)
    {
        current->log.push_back("Detach" + current->Name(handle) + " " + std::to_string(flags) + " " +
                               std::to_string(providerFlags));
        return current->detachError;
    }
    static uint32_t KK_CALL GetPath(kk::NtHandle handle, uint32_t* bytes, char16_t* path)
    {
        current->log.push_back("GetPath" + current->Name(handle) + " " + std::to_string(*bytes));
        if (current->pathError == 0) {
            std::copy(current->path.begin(), current->path.end(), path);
            if (current->terminates) {
                path[current->path.size()] = 0;
            }
            *bytes = 0xFFFFFFFF;
        }
        return current->pathError;
    }
    static uint32_t KK_CALL GetDependencies(kk::NtHandle disk, uint32_t flags, uint32_t size,
                                            kk::StorageDependencyInfo* answer, uint32_t* sizeUsed)
    {
        current->log.push_back("GetDependencies" + current->Name(disk) + " " + std::to_string(flags) + " " +
                               std::to_string(size));
        return current->answerDependencies(answer, size, sizeUsed);
    }

    machine::Machine& machine_;
};
