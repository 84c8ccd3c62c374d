#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
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
        machine.modules.Add(u"virtdisk.dll", {{"CreateVirtualDisk", machine::EntryAddress(&Create)},
                                              {"AttachVirtualDisk", machine::EntryAddress(&Attach)},
                                              {"DetachVirtualDisk", machine::EntryAddress(&Detach)},
                                              {"GetVirtualDiskPhysicalPath", machine::EntryAddress(&GetPath)}});
    }
    ScriptedVirtdisk(const ScriptedVirtdisk&) = delete;
    ScriptedVirtdisk& operator=(const ScriptedVirtdisk&) = delete;
    ~ScriptedVirtdisk() { current = nullptr; }

    // The Win32 errors that the calls end with.
    uint32_t createError = 0;
    uint32_t attachError = 0;
    uint32_t detachError = 0;
    uint32_t pathError = 0;
    std::u16string path = u"\\\\.\\PhysicalDrive12";
    bool terminates = true;

    std::vector<std::string> log;
    std::vector<uint8_t> creation;  // the record of the last creation
    kk::VirtualStorageType storageType = {};
    std::u16string createdPath;

private:
    static inline ScriptedVirtdisk* current = nullptr;

    static std::string Null(const void* pointer) { return pointer == nullptr ? " null" : " pointer"; }
    std::string Name(kk::NtHandle handle) const { return " " + machine_.handles.NameOf(handle); }

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
        if (current->createError == 0) {
            *handle = current->machine_.handles.AddServiceHandle("image", [] { current->log.emplace_back("Close"); });
        }
        return current->createError;
    }
    static uint32_t KK_CALL Attach(kk::NtHandle handle, void* descriptor, uint32_t flags, uint32_t providerFlags,
                                   const void* parameters, void* overlapped)
    {
        current->log.push_back("Attach" + current->Name(handle) + Null(descriptor) + " " + std::to_string(flags) + " " +
                               std::to_string(providerFlags) + Null(parameters) + Null(overlapped));
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

    machine::Machine& machine_;
};
