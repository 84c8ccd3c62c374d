#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "core/nt.h"
#include "image/virtual_disk_api.h"
#include "machine/machine.h"
#include "support/shell.h"

namespace machine::test {

inline constexpr uint64_t kMiB = 1 << 20;
inline constexpr uint32_t kBlockBytes = 2 << 20;

/// A machine with one disk and virtdisk.dll, and the calls of that library.
class VirtualDiskTest : public testing::Test {
protected:
    VirtualDiskTest()
    {
        machine_->SetFailureHandler([this](const std::string& breach) { breaches_.push_back(breach); });
        machine_->AddDisk(4 * kMiB);
    }
    ~VirtualDiskTest() override
    {
        machine_.reset();
        EXPECT_EQ(breaches_, expectedBreaches_);
    }

    template <typename F>
    F Entry(const char* name)
    {
        return reinterpret_cast<F>(machine_->modules.FindEntry(machine_->modules.Load(u"virtdisk.dll"), name));
    }
    uint32_t Create(const kk::CreateVirtualDiskParameters& parameters, uint32_t access = 0, uint32_t flags = 0,
                    const std::u16string& path = {})
    {
        const std::u16string where = path.empty() ? HostDrives::WindowsPath(ImageFile().string()) : path;
        return Entry<kk::CreateVirtualDiskFn>("CreateVirtualDisk")(&storageType_, where.c_str(), access, nullptr, flags,
                                                                   0, &parameters, nullptr, &handle_);
    }
    /// Opens as an image of an unstated type.
    uint32_t Open(uint32_t access = kMountAccess, const std::filesystem::path& file = {})
    {
        const kk::VirtualStorageType unknown = {};
        const std::u16string where = HostDrives::WindowsPath((file.empty() ? ImageFile() : file).string());
        return Entry<kk::OpenVirtualDiskFn>("OpenVirtualDisk")(&unknown, where.c_str(), access, 0, nullptr, &handle_);
    }
    uint32_t CreateOverlay(const std::filesystem::path& file, const std::filesystem::path& parent)
    {
        const std::u16string parentPath = HostDrives::WindowsPath(parent.string());
        kk::CreateVirtualDiskParameters parameters = {};
        parameters.version = 2;
        parameters.parentPath = parentPath.c_str();
        return Create(parameters, 0, 0, HostDrives::WindowsPath(file.string()));
    }
    /// Attaches for longer than the handle lives, and closes it.
    uint32_t AttachForGood(uint32_t moreFlags = 0)
    {
        const kk::AttachVirtualDiskParameters parameters = {.version = 1, .reserved4 = 0, .reserved8 = {}};
        const uint32_t error = Attach(kk::kAttachVirtualDiskFlagPermanentLifetime | moreFlags, &parameters);
        Close();
        return error;
    }
    /// Takes an image's disk out through a handle of its own.
    uint32_t Unmount(const std::filesystem::path& file = {})
    {
        if (const uint32_t error = Open(kk::kVirtualDiskAccessDetach, file); error != 0) {
            return error;
        }
        const uint32_t error = Detach();
        Close();
        return error;
    }
    uint32_t Attach(uint32_t flags = kk::kAttachVirtualDiskFlagNoDriveLetter,
                    const kk::AttachVirtualDiskParameters* parameters = nullptr)
    {
        return Entry<kk::AttachVirtualDiskFn>("AttachVirtualDisk")(handle_, nullptr, flags, 0, parameters, nullptr);
    }
    uint32_t Detach(uint32_t flags = 0)
    {
        return Entry<kk::DetachVirtualDiskFn>("DetachVirtualDisk")(handle_, flags, 0);
    }
    uint32_t PhysicalPath(uint32_t& size, char16_t* text)
    {
        return Entry<kk::GetVirtualDiskPhysicalPathFn>("GetVirtualDiskPhysicalPath")(handle_, &size, text);
    }
    void Close()
    {
        EXPECT_EQ(NtClose(handle_), 0);
        handle_ = nullptr;
    }

    static kk::CreateVirtualDiskParameters Parameters(uint64_t size, uint32_t sectorBytes = 512)
    {
        kk::CreateVirtualDiskParameters parameters = {};
        parameters.version = 2;
        parameters.maximumSize = size;
        parameters.blockSizeInBytes = kBlockBytes;
        parameters.sectorSizeInBytes = sectorBytes;
        parameters.physicalSectorSizeInBytes = 4096;
        return parameters;
    }
    static constexpr uint32_t kMountAccess = kk::kVirtualDiskAccessAttachRw | kk::kVirtualDiskAccessGetInfo;

    std::filesystem::path ImageFile() const { return folder_.Path() / "image.vhdx"; }

    TemporaryFolder folder_;
    std::vector<std::string> breaches_;
    std::vector<std::string> expectedBreaches_;
    std::unique_ptr<Machine> machine_ = std::make_unique<Machine>();
    kk::VirtualStorageType storageType_ = {kk::kVirtualStorageTypeDeviceVhdx, kk::kVirtualStorageTypeVendorMicrosoft};
    kk::NtHandle handle_ = nullptr;
};

}  // namespace machine::test
