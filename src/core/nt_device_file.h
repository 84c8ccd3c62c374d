#pragma once

#include "core/device_file.h"
#include "core/nt_types.h"

namespace kk {

/// A DeviceFile on a native handle, which it owns.
class NtDeviceFile final : public DeviceFile {
public:
    explicit NtDeviceFile(NtHandle handle) : handle_(handle) {}

    void Destroy(bool freeObject) override;
    [[nodiscard]] KK_STATUS ReadAt(uint64_t offset, void* buffer, uint32_t length) override;
    [[nodiscard]] KK_STATUS WriteAt(uint64_t offset, const void* buffer, uint32_t length) override;
    [[nodiscard]] KK_STATUS Control(uint32_t code, const void* input, uint32_t inputLength, void* output,
                                    uint32_t outputLength, uint32_t* returned) override;
    KK_STATUS QuerySize(uint64_t* size) override;
    [[nodiscard]] KK_STATUS Flush() override;

private:
    NtHandle handle_;
};

}  // namespace kk
