#include "counting_images.h"

#include <mutex>

namespace kkctl {

class CountingImages::Counter {
public:
    explicit Counter(std::function<void()> wrote) : wrote_(std::move(wrote)) {}

    void Restart(const std::filesystem::path& file)
    {
        const std::lock_guard lock(mutex_);
        file_ = file;
        bytes_ = 0;
    }

    void Count(uint64_t bytes)
    {
        wrote_();
        const std::lock_guard lock(mutex_);
        bytes_ += bytes;
    }

    uint64_t Bytes(const std::filesystem::path& file) const
    {
        const std::lock_guard lock(mutex_);
        return file == file_ ? bytes_ : 0;
    }

private:
    std::function<void()> wrote_;
    mutable std::mutex mutex_;
    std::filesystem::path file_;
    uint64_t bytes_ = 0;
};

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

CountingImages::CountingImages(std::function<void()> wrote) : counter_(std::make_shared<Counter>(std::move(wrote))) {}

CountingImages::~CountingImages() = default;

uint32_t CountingImages::Open(const std::filesystem::path& file, machine::ImageAccess access,
                              machine::OpenedImage& disk)
{
    const uint32_t error = images_.Open(file, access, disk);
    if (error == machine::kErrorSuccess) {
        counter_->Restart(file);
        disk.storage = std::make_unique<CountingStorage>(
            std::move(disk.storage), [counter = counter_](uint64_t bytes) { counter->Count(bytes); });
    }
    return error;
}

uint64_t CountingImages::BytesWritten(const std::filesystem::path& file) const
{
    return counter_->Bytes(file);
}

}  // namespace kkctl
