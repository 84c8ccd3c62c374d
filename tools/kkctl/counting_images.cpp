#include "counting_images.h"

namespace kkctl {

namespace {

class CountingStorage final : public machine::Storage {
public:
    CountingStorage(std::unique_ptr<machine::Storage> storage, std::function<void(uint64_t bytes)> wrote)
        : storage_(std::move(storage)), wrote_(std::move(wrote))
    {
    }

    uint64_t Size() const override { return storage_->Size(); }
    bool Read(uint64_t offset, std::span<uint8_t> into) override { return storage_->Read(offset, into); }
    bool Flush() override { return storage_->Flush(); }

    bool Write(uint64_t offset, std::span<const uint8_t> from) override
    {
        const bool isWritten = storage_->Write(offset, from);
        if (isWritten) {
            wrote_(from.size());
        }
        return isWritten;
    }

private:
    std::unique_ptr<machine::Storage> storage_;
    std::function<void(uint64_t bytes)> wrote_;
};

}  // namespace

uint32_t CountingImages::Open(const std::filesystem::path& file, machine::OpenedImage& disk)
{
    const uint32_t error = images_.Open(file, disk);
    if (error == machine::kErrorSuccess) {
        opened_();
        disk.storage = std::make_unique<CountingStorage>(std::move(disk.storage), wrote_);
    }
    return error;
}

}  // namespace kkctl
