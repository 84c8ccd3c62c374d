#pragma once

#include "core/device_file.h"

namespace kk {

/// Opens files, disks, volumes and control devices.
class FileOpener {
public:
    FileOpener(const FileOpener&) = delete;
    FileOpener& operator=(const FileOpener&) = delete;

    /// Ends the object; see DeviceFile::Destroy.
    virtual void Destroy(bool freeObject);

    /// Opens what `path` names (see ToNtPath), for reading, or for reading and writing. Others may read and write it
    /// at the same time. The caller ends the object that `file` receives; it is null after a failure.
    [[nodiscard]] virtual KK_STATUS Open(const char16_t* path, bool writable, DeviceFile** file);

protected:
    FileOpener() = default;
    ~FileOpener() = default;
};

/// The opener over the native system calls.
class NtFileOpener final : public FileOpener {
public:
    void Destroy(bool freeObject) override;
    [[nodiscard]] KK_STATUS Open(const char16_t* path, bool writable, DeviceFile** file) override;
};

/// The process-wide opener, created on first use and never ended.
[[nodiscard]] FileOpener* GetFileOpener();

/// Opens with the process-wide opener.
[[nodiscard]] KK_STATUS OpenDevice(const char16_t* path, bool writable, DevicePtr& device);

}  // namespace kk
