#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "backup/vss_interfaces.h"
#include "machine/machine.h"
#include "machine/text.h"

/// A snapshot service that takes any volume name, checks every argument to the last pointer and writes its calls down.
/// One exists at a time. Objects are counted; what is alive at its end is a failure.
class ScriptedSnapshots {
public:
    explicit ScriptedSnapshots(machine::Machine& machine)
    {
        current = this;
        // The order of the slots is the published one; a trap lies in all others.
        Fill(componentMethods, &Trap);
        Fill(asyncMethods, &Trap);
        componentMethods.release = &Release;
        componentMethods.initializeForBackup = &InitializeForBackup;
        componentMethods.setBackupState = &SetBackupState;
        componentMethods.setContext = &SetContext;
        componentMethods.gatherWriterMetadata = &GatherWriterMetadata;
        componentMethods.prepareForBackup = &PrepareForBackup;
        componentMethods.doSnapshotSet = &DoSnapshotSet;
        componentMethods.startSnapshotSet = &StartSnapshotSet;
        componentMethods.addToSnapshotSet = &AddToSnapshotSet;
        componentMethods.getSnapshotProperties = &GetSnapshotProperties;
        asyncMethods.release = &ReleaseAsync;
        asyncMethods.wait = &Wait;
        asyncMethods.queryStatus = &QueryStatus;
        Install(machine);
    }
    ScriptedSnapshots(const ScriptedSnapshots&) = delete;
    ScriptedSnapshots& operator=(const ScriptedSnapshots&) = delete;
    ~ScriptedSnapshots()
    {
        EXPECT_EQ(components, 0);
        EXPECT_EQ(asyncs, 0);
        EXPECT_EQ(filledProperties, 0);
        EXPECT_EQ(comEntries, 0);
        current = nullptr;
    }

    /// How calls end, by the first word of their line.
    std::map<std::string, kk::HResult> results;
    /// Device names by the number of the volume, from 1; others are made up. nullopt: none.
    std::map<uint32_t, std::optional<std::u16string>> devices;
    bool givesComponents = true;

    std::vector<std::string> log;
    std::vector<std::u16string> names;
    int components = 0;
    int asyncs = 0;
    int filledProperties = 0;
    int comEntries = 0;

private:
    static inline ScriptedSnapshots* current = nullptr;

    static kk::HResult Log(const std::string& line)
    {
        current->log.push_back(line);
        const auto found = current->results.find(line.substr(0, line.find(' ')));
        return found == current->results.end() ? 0 : found->second;
    }
    static std::string Null(const void* pointer) { return pointer == nullptr ? "" : " not null"; }
    static std::string Zero(const kk::Guid& guid) { return guid == kk::Guid{} ? "" : " not zero"; }
    static void Trap() { ADD_FAILURE() << "a method that nobody should call"; }

    template <typename Methods>
    static void Fill(Methods& methods, kk::UnusedMethod method)
    {
        for (size_t slot = 0; slot < sizeof(methods) / sizeof(method); ++slot) {
            std::memcpy(reinterpret_cast<uint8_t*>(&methods) + slot * sizeof(method), &method, sizeof(method));
        }
    }

    static uint32_t KK_CALL Release(kk::VssBackupComponents*)
    {
        --current->components;
        (void)Log("components Release");
        return 0;
    }
    static kk::HResult KK_CALL InitializeForBackup(kk::VssBackupComponents*, char16_t* xml)
    {
        return Log("InitializeForBackup" + Null(xml));
    }
    static kk::HResult KK_CALL SetBackupState(kk::VssBackupComponents*, bool select, bool bootable, uint32_t type,
                                              bool partial)
    {
        return Log("SetBackupState " + std::to_string(select) + std::to_string(bootable) + std::to_string(type) +
                   std::to_string(partial));
    }
    static kk::HResult KK_CALL SetContext(kk::VssBackupComponents*, int32_t context)
    {
        return Log("SetContext " + std::to_string(context));
    }
    static kk::HResult KK_CALL GatherWriterMetadata(kk::VssBackupComponents*, kk::VssAsync** async)
    {
        return current->Begin("GatherWriterMetadata", async);
    }
    static kk::HResult KK_CALL PrepareForBackup(kk::VssBackupComponents*, kk::VssAsync** async)
    {
        return current->Begin("PrepareForBackup", async);
    }
    static kk::HResult KK_CALL DoSnapshotSet(kk::VssBackupComponents*, kk::VssAsync** async)
    {
        return current->Begin("DoSnapshotSet", async);
    }
    static kk::HResult KK_CALL StartSnapshotSet(kk::VssBackupComponents*, kk::Guid* setId)
    {
        return Log("StartSnapshotSet" + Zero(*setId));
    }
    static kk::HResult KK_CALL AddToSnapshotSet(kk::VssBackupComponents*, const char16_t* name, kk::Guid provider,
                                                kk::Guid* id)
    {
        current->names.emplace_back(name);
        const std::string zeros = Zero(provider) + Zero(*id);
        *id = {static_cast<uint32_t>(current->names.size()), 7, 7, {}};
        return Log("AddToSnapshotSet " + machine::Utf8(name).substr(0, 20) + zeros);
    }
    static kk::HResult KK_CALL GetSnapshotProperties(kk::VssBackupComponents*, kk::Guid id,
                                                     kk::VssSnapshotProperties* properties)
    {
        return current->GetProperties(id, *properties);
    }
    static uint32_t KK_CALL ReleaseAsync(kk::VssAsync*)
    {
        --current->asyncs;
        (void)Log("Async Release");
        return 0;
    }
    static kk::HResult KK_CALL Wait(kk::VssAsync*, uint32_t milliseconds)
    {
        return Log("Wait " + machine::Hex(milliseconds));
    }
    static kk::HResult KK_CALL QueryStatus(kk::VssAsync*, kk::HResult* result, int32_t* reserved)
    {
        const std::string call = "QueryStatus" + Null(reserved) + (*result == 0 ? "" : " dirty");
        *result = 0x0004230A;
        return Log(call);
    }

    /// Gives an object whether the call fails or not.
    kk::HResult Begin(const std::string& name, kk::VssAsync** async)
    {
        const std::string call = name + Null(*async);
        *async = &asyncObject;
        ++asyncs;
        return Log(call);
    }

    kk::HResult GetProperties(const kk::Guid& id, kk::VssSnapshotProperties& properties)
    {
        const auto* const bytes = reinterpret_cast<const uint8_t*>(&properties);
        const bool zeroed = std::all_of(bytes, bytes + sizeof(properties), [](uint8_t byte) { return byte == 0; });
        const kk::HResult result =
            Log("GetSnapshotProperties " + std::to_string(id.data1) + (zeroed ? "" : " not zero"));
        const auto told = devices.find(id.data1);
        const auto name = told != devices.end() ? told->second : u"device" + std::u16string(1, u'0' + id.data1 % 10);
        std::memset(&properties, 0xA5, sizeof(properties));
        properties.snapshotDeviceObject = nullptr;
        if (name) {
            deviceText.assign(name->begin(), name->end());
            deviceText.push_back(0);
            properties.snapshotDeviceObject = deviceText.data();
        }
        filledProperties += result >= 0 ? 1 : 0;
        return result;
    }

    static void KK_CALL FreeProperties(kk::VssSnapshotProperties* properties)
    {
        --current->filledProperties;
        const std::string owner = properties->snapshotAttributes == static_cast<int32_t>(0xA5A5A5A5) ? "" : " strange";
        // The strings are gone from here on.
        std::fill(current->deviceText.begin(), current->deviceText.end(), u'#');
        properties->snapshotDeviceObject = nullptr;
        (void)Log("VssFreeSnapshotProperties" + owner);
    }
    static kk::HResult KK_CALL Create(kk::VssBackupComponents** out)
    {
        const std::string call = "CreateVssBackupComponentsInternal" + Null(*out);
        if (current->givesComponents) {
            *out = &current->componentsObject;
            ++current->components;
        }
        return Log(call);
    }
    static kk::HResult KK_CALL Initialize(void* reserved, uint32_t flags)
    {
        const kk::HResult result = Log("CoInitializeEx " + std::to_string(flags) + Null(reserved));
        current->comEntries += result >= 0 ? 1 : 0;
        return result;
    }
    static void KK_CALL Uninitialize()
    {
        --current->comEntries;
        (void)Log("CoUninitialize");
    }
    static kk::HResult KK_CALL Security(void* descriptor, int32_t count, void* services, void* reserved1,
                                        uint32_t level, uint32_t impersonation, void* list, uint32_t capabilities,
                                        void* reserved3)
    {
        return Log("CoInitializeSecurity " + std::to_string(count) + " " + std::to_string(level) + " " +
                   std::to_string(impersonation) + " " + std::to_string(capabilities) + Null(descriptor) +
                   Null(services) + Null(reserved1) + Null(list) + Null(reserved3));
    }

    static void Install(machine::Machine& machine)
    {
        machine.modules.Add(u"ole32.dll", {{"CoInitializeEx", machine::EntryAddress(&Initialize)},
                                           {"CoUninitialize", machine::EntryAddress(&Uninitialize)},
                                           {"CoInitializeSecurity", machine::EntryAddress(&Security)}});
        machine.modules.Add(u"vssapi.dll", {{"CreateVssBackupComponentsInternal", machine::EntryAddress(&Create)},
                                            {"VssFreeSnapshotProperties", machine::EntryAddress(&FreeProperties)}});
    }

    kk::VssBackupComponentsVtable componentMethods = {};
    kk::VssAsyncVtable asyncMethods = {};
    kk::VssBackupComponents componentsObject = {&componentMethods};
    kk::VssAsync asyncObject = {&asyncMethods};
    std::vector<char16_t> deviceText;
};
