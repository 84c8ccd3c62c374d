#pragma once

#include <memory>
#include <string>

#include "machine/device.h"
#include "machine/host_drives.h"

namespace machine {

/// A regular file of the host behind one handle.
class HostFile final : public Device {
public:
    HostFile(int descriptor, std::unique_ptr<ShareTable::Hold> hold) : descriptor_(descriptor), hold_(std::move(hold))
    {
    }
    HostFile(const HostFile&) = delete;
    HostFile& operator=(const HostFile&) = delete;
    ~HostFile() override;

    IoResult Read(OpenFile& file, uint64_t offset, std::span<uint8_t> into) override;
    IoResult Write(OpenFile& file, uint64_t offset, std::span<const uint8_t> from) override;
    Status QueryStandardInformation(OpenFile& file, kk::FileStandardInformation& information) override;
    Status QueryFileSystemName(OpenFile& file, std::u16string& name) override;
    Status Flush(OpenFile& file) override;

private:
    int descriptor_;
    std::unique_ptr<ShareTable::Hold> hold_;
};

/// A folder of the host behind one handle: can be opened and closed.
class HostFolder final : public Device {
public:
    Status QueryStandardInformation(OpenFile& file, kk::FileStandardInformation& information) override;
    Status QueryFileSystemName(OpenFile& file, std::u16string& name) override;
};

}  // namespace machine
