#pragma once

#include <cstdint>
#include <filesystem>
#include <span>

#include "machine/image_format.h"
#include "machine/storage.h"

struct nbd_handle;

namespace machine {

/// The contents of an image file, served by a `qemu-nbd` process that lives as long as this object. Once the object is
/// gone the process is too, and the file is complete and unlocked.
class NbdStorage final : public Storage {
public:
    enum class Mode { ReadWrite, ReadOnly };

    /// Throws std::runtime_error when the server cannot be started or does not open the file.
    explicit NbdStorage(const std::filesystem::path& file, ImageFormat imageFormat = ImageFormat::Vhdx,
                        Mode mode = Mode::ReadWrite);
    NbdStorage(const NbdStorage&) = delete;
    NbdStorage& operator=(const NbdStorage&) = delete;
    ~NbdStorage() override;

    uint64_t Size() const override { return size_; }
    bool Read(uint64_t offset, std::span<uint8_t> into) override;
    bool Write(uint64_t offset, std::span<const uint8_t> from) override;
    bool Flush() override;

private:
    nbd_handle* server_;
    uint64_t size_ = 0;
};

}  // namespace machine
