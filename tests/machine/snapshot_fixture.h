#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "backup/vss_interfaces.h"
#include "core/nt.h"
#include "machine/machine.h"
#include "machine/snapshot_service.h"

namespace machine::test {

inline constexpr uint64_t kMiB = 1 << 20;

/// A machine with one disk of two volumes, vssapi.dll and ole32.dll, and the calls of a caller who minds the rules.
class SnapshotTest : public testing::Test {
protected:
    SnapshotTest()
    {
        machine_->SetFailureHandler([this](const std::string& breach) { breaches_.push_back(breach); });
        Disk& disk = machine_->AddDisk(64 * kMiB);
        disk.Gpt({.partitions = {{.start = kMiB, .length = 32 * kMiB}, {.start = 40 * kMiB, .length = 8 * kMiB}}});
        disk.WriteBytes(kMiB, std::vector<uint8_t>(512, 0x11));
        disk.WriteBytes(40 * kMiB, std::vector<uint8_t>(512, 0x22));
    }
    ~SnapshotTest() override
    {
        machine_.reset();
        EXPECT_EQ(breaches_, expectedBreaches_);
    }

    Disk& TheDisk() { return *machine_->FindDisk(0); }
    Volume& FirstVolume() { return *machine_->FindVolume(0, kMiB); }
    Volume& SecondVolume() { return *machine_->FindVolume(0, 40 * kMiB); }

    template <typename F>
    F Entry(const char16_t* library, const char* name)
    {
        return reinterpret_cast<F>(machine_->modules.FindEntry(machine_->modules.Load(library), name));
    }
    kk::HResult JoinCom(uint32_t flags = 0)
    {
        return Entry<kk::CoInitializeExFn>(u"ole32.dll", "CoInitializeEx")(nullptr, flags);
    }
    void LeaveCom() { Entry<kk::CoUninitializeFn>(u"ole32.dll", "CoUninitialize")(); }
    kk::HResult SetSecurity()
    {
        const auto set = Entry<kk::CoInitializeSecurityFn>(u"ole32.dll", "CoInitializeSecurity");
        return set(nullptr, -1, nullptr, nullptr, 6, 2, nullptr, 0, nullptr);
    }
    kk::HResult Create()
    {
        return Entry<kk::CreateVssBackupComponentsInternalFn>(u"vssapi.dll",
                                                              "CreateVssBackupComponentsInternal")(&components_);
    }
    void FreeProperties(kk::VssSnapshotProperties& properties)
    {
        Entry<kk::VssFreeSnapshotPropertiesFn>(u"vssapi.dll", "VssFreeSnapshotProperties")(&properties);
    }

    const kk::VssBackupComponentsVtable& Methods() const { return *components_->methods; }
    kk::HResult Add(const std::u16string& volumeName, kk::Guid& id)
    {
        return Methods().addToSnapshotSet(components_, volumeName.c_str(), kk::Guid{}, &id);
    }
    /// Waits for an operation and lets go of it; the result that it reports.
    static kk::HResult Finish(kk::VssAsync* async)
    {
        kk::HResult result = -1;
        EXPECT_EQ(async->methods->wait(async, 0xFFFFFFFF), 0);
        EXPECT_EQ(async->methods->queryStatus(async, &result, nullptr), 0);
        EXPECT_EQ(async->methods->release(async), 0u);
        return result;
    }
    /// Everything up to an open snapshot set.
    void StartSet()
    {
        kk::VssAsync* async = nullptr;
        kk::Guid setId = {};
        ASSERT_GE(JoinCom(), 0);
        ASSERT_EQ(Create(), 0);
        ASSERT_EQ(Methods().initializeForBackup(components_, nullptr), 0);
        ASSERT_EQ(Methods().setBackupState(components_, true, true, 1, false), 0);
        ASSERT_EQ(Methods().setContext(components_, 0), 0);
        ASSERT_EQ(Methods().gatherWriterMetadata(components_, &async), 0);
        ASSERT_EQ(Finish(async), kVssAsyncFinished);
        ASSERT_EQ(Methods().startSnapshotSet(components_, &setId), 0);
        EXPECT_NE(setId, kk::Guid{});
    }
    void TakeSet()
    {
        kk::VssAsync* async = nullptr;
        ASSERT_EQ(Methods().prepareForBackup(components_, &async), 0);
        ASSERT_EQ(Finish(async), kVssAsyncFinished);
        ASSERT_EQ(Methods().doSnapshotSet(components_, &async), 0);
        ASSERT_EQ(Finish(async), kVssAsyncFinished);
    }
    /// A snapshot of the first volume.
    kk::Guid TakeSnapshot()
    {
        kk::Guid id = {};
        StartSet();
        EXPECT_EQ(Add(FirstVolume().Path(), id), 0);
        TakeSet();
        return id;
    }
    void ReleaseAll()
    {
        EXPECT_EQ(Methods().release(components_), 0u);
        LeaveCom();
    }

    KK_STATUS Open(std::u16string_view name, uint32_t access, kk::NtHandle& handle)
    {
        const auto bytes = static_cast<uint16_t>(name.size() * 2);
        const kk::UnicodeString text = {bytes, bytes, name.data()};
        kk::ObjectAttributes attributes = {};
        attributes.length = sizeof(attributes);
        attributes.objectName = &text;
        attributes.attributes = kk::kObjCaseInsensitive;
        kk::IoStatusBlock ioStatus = {};
        return NtCreateFile(&handle, access, &attributes, &ioStatus, nullptr, kk::kFileAttributeNormal,
                            kk::kFileShareRead | kk::kFileShareWrite, kk::kFileOpen,
                            kk::kFileSynchronousIoNonalert | kk::kFileNonDirectoryFile, nullptr, 0);
    }

    std::vector<std::string> breaches_;
    std::vector<std::string> expectedBreaches_;
    std::unique_ptr<Machine> machine_ = std::make_unique<Machine>();
    SnapshotService& service_ = InstallSnapshotService(*machine_);
    kk::VssBackupComponents* components_ = nullptr;
};

}  // namespace machine::test
