#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <unordered_map>
#include <vector>

namespace machine {

/// Some bytes of a storage.
struct Stretch {
    uint64_t offset = 0;
    uint64_t length = 0;
};

/// Bytes of a fixed size under a disk. Requests that reach past the end fail as a whole.
class Storage {
public:
    virtual ~Storage() = default;

    virtual uint64_t Size() const = 0;
    virtual bool Read(uint64_t offset, std::span<uint8_t> into) = 0;
    virtual bool Write(uint64_t offset, std::span<const uint8_t> from) = 0;
    virtual bool Flush() { return true; }
    /// What part of the given bytes may hold anything but zeros, in rising order.
    virtual std::vector<Stretch> DataIn(uint64_t offset, uint64_t length) const { return {{offset, length}}; }

protected:
    /// Whether `length` bytes at `offset` lie inside.
    bool Holds(uint64_t offset, uint64_t length) const { return offset <= Size() && length <= Size() - offset; }
};

/// Memory that exists only where something was written; the rest reads as zeros.
class MemoryStorage final : public Storage {
public:
    explicit MemoryStorage(uint64_t size) : size_(size) {}

    uint64_t Size() const override { return size_; }
    bool Read(uint64_t offset, std::span<uint8_t> into) override;
    bool Write(uint64_t offset, std::span<const uint8_t> from) override;
    std::vector<Stretch> DataIn(uint64_t offset, uint64_t length) const override;

    /// Bytes of memory that are in use: what writes have touched, in whole pages.
    uint64_t AllocatedBytes() const { return pages_.size() * kPageBytes; }

private:
    static constexpr uint64_t kPageBytes = 64 * 1024;
    using Page = std::array<uint8_t, kPageBytes>;

    uint64_t size_;
    std::unordered_map<uint64_t, std::unique_ptr<Page>> pages_;
};

/// A file of the host, of the size it has when it is opened.
class FileStorage final : public Storage {
public:
    enum class Mode { ReadWrite, ReadOnly };

    /// Throws std::system_error when the file does not open.
    explicit FileStorage(const std::string& hostPath, Mode mode = Mode::ReadWrite);
    FileStorage(const FileStorage&) = delete;
    FileStorage& operator=(const FileStorage&) = delete;
    ~FileStorage() override;

    uint64_t Size() const override { return size_; }
    bool Read(uint64_t offset, std::span<uint8_t> into) override;
    bool Write(uint64_t offset, std::span<const uint8_t> from) override;
    bool Flush() override;
    std::vector<Stretch> DataIn(uint64_t offset, uint64_t length) const override;

private:
    int descriptor_;
    uint64_t size_;
};

}  // namespace machine
